#include "cctalk/exception.h"
#include "devicemodel.h"
#include "support/logcapture.h"
#include "testchanger.h"

#include <QtTest>

using namespace changertest;

namespace {

QList<QByteArray> repeat(const QByteArray& frame, int times)
{
    QList<QByteArray> out;
    for (int i = 0; i < times; ++i)
        out << frame;
    return out;
}

class SpyChanger : public RecordingChanger
{
public:
    QStringList calls;

    void resetIfNeeded() override { calls << QStringLiteral("resetIfNeeded"); }
    void connect() override { calls << QStringLiteral("connect"); }
    void cashInStop() override { calls << QStringLiteral("cashInStop"); }
    void checkError() override { calls << QStringLiteral("checkError"); }
    void waitNotState(int state, int polls, const QString& text, bool checkErrors) override
    {
        calls << QStringLiteral("waitNotState(%1, %2, %3, %4)")
                     .arg(QString::number(state), QString::number(polls), text,
                          checkErrors ? QStringLiteral("true") : QStringLiteral("false"));
    }
};

// The state check of a quiet device: connect with its initialisation wait, the
// acceptance check, the payout wait, the fault check.
QList<QByteArray> quietStateCheck()
{
    return {req(254), req(123), req(123), req(123), req(123)};
}

} // namespace

class TestSupervision : public QObject
{
    Q_OBJECT
private slots:
    void cleanup() { RecordingChanger::setResetPending(false); }

    void checkErrorWithoutFaultBitsAsksOnlyTheRegister();
    void warningWithNonFatalStatusOnlyLogs();
    void warningBecomesFaultWhenTheStatusIsFatal();
    void warningBecomesFaultWhenTheSelfcheckIsFatal();
    void warningPrefersTheSelfcheckMessage();
    void flaggedFaultWithoutReportedErrorIsIgnored();
    void faultBitRaisesTheStatusMessage();
    void delayedErrorIsRaisedAgainThenTheDeviceIsReset();
    void delayedWarningIsStillRaisedByTheNextStateCheck();
    void linkFailureDuringCheckLeavesTheResetFlag();

    void waitReturnsAtOnceWhenTheBitIsClear();
    void waitWithNoPollsTimesOutAtOnce();
    void waitWithNegativePollsTimesOutAtOnce();
    void waitTimesOutAfterItsPolls();
    void waitWithoutErrorChecks();
    void waitEndsWhenTheBitClearsOnTheLastPoll();
    void waitEndsOnAFault();

    void resetOnlyWhenFlagged();
    void failedResetIsTriedAgain();
    void resetFlagIsClassWide();

    void stateCheckOfAQuietDevice();
    void stateCheckStopsAnAcceptanceStillRunning();
    void stateCheckWaitsForAPayout();
    void stateCheckPayoutTimeout();
    void stateCheckCallsItsStepsVirtually();
    void stateCheckRaisesAFault();
};

void TestSupervision::checkErrorWithoutFaultBitsAsksOnlyTheRegister()
{
    Rig rig;
    rig.model.setActivity(4 | 8 | 64 | 32 | 0x8000);
    testsupport::LogCapture log;
    rig.changer.checkError();
    QCOMPARE(rig.serial.writes, QList<QByteArray>{req(123)});
    QVERIFY(significant(log).isEmpty());
    QVERIFY(!RecordingChanger::resetPending());
}

void TestSupervision::warningWithNonFatalStatusOnlyLogs()
{
    Rig rig;
    rig.model.setActivity(4096);
    rig.model.setErrorStatus(3, 2);
    rig.model.setSelfcheck(0, 7);
    testsupport::LogCapture log;
    rig.changer.checkError();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(123), req(122), req(232)}));
    QCOMPARE(significant(log), QStringList{QStringLiteral("WARN Хоппер 3, заклинивание")});
    QVERIFY(!RecordingChanger::resetPending());
    QVERIFY(rig.changer.pendingError().isEmpty());
}

void TestSupervision::warningBecomesFaultWhenTheStatusIsFatal()
{
    Rig rig;
    rig.model.setActivity(4096);
    rig.model.setErrorStatus(1, 101);
    rig.model.setSelfcheck(0, 0);
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkError(); }),
             QStringLiteral("Приемник монет, заклинивание"));
    QCOMPARE(significant(log), QStringList{QStringLiteral("ERROR Приемник монет, заклинивание")});
    QVERIFY(RecordingChanger::resetPending());
}

void TestSupervision::warningBecomesFaultWhenTheSelfcheckIsFatal()
{
    Rig rig;
    rig.model.setActivity(4096 | 16);
    rig.model.setErrorStatus(2, 1);
    rig.model.setSelfcheck(51, 1);
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkError(); }),
             QStringLiteral("Открыта дверь в устройстве поштучной подачи"));
    QVERIFY(RecordingChanger::resetPending());
}

void TestSupervision::warningPrefersTheSelfcheckMessage()
{
    Rig rig;
    rig.model.setActivity(4096 | 16);
    rig.model.setErrorStatus(2, 1);
    rig.model.setSelfcheck(3, 0);
    testsupport::LogCapture log;
    rig.changer.checkError();
    QCOMPARE(significant(log), QStringList{QStringLiteral("WARN Ошибка датчика валидации")});
    QVERIFY(!RecordingChanger::resetPending());
}

void TestSupervision::flaggedFaultWithoutReportedErrorIsIgnored()
{
    Rig rig;
    rig.model.setActivity(16);
    // module 0: no error, even with a fatal code
    rig.model.setErrorStatus(0, 101);
    testsupport::LogCapture log;
    rig.changer.checkError();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(123), req(122)}));
    QVERIFY(significant(log).isEmpty());
    QVERIFY(!RecordingChanger::resetPending());
}

void TestSupervision::faultBitRaisesTheStatusMessage()
{
    Rig rig;
    rig.model.setActivity(16);
    rig.model.setErrorStatus(4, 4);
    rig.model.setSelfcheck(0, 0);
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkError(); }),
             QStringLiteral("Хоппер 4 неисправен"));
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(123), req(122), req(232)}));
    QCOMPARE(significant(log), QStringList{QStringLiteral("ERROR Хоппер 4 неисправен")});
    QVERIFY(RecordingChanger::resetPending());
    QVERIFY(rig.changer.pendingError().isEmpty());
}

void TestSupervision::delayedErrorIsRaisedAgainThenTheDeviceIsReset()
{
    Rig rig;
    rig.model.setActivity(16);
    rig.model.setErrorStatus(1, 104);
    rig.model.setSelfcheck(35, 2);
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkError(); }),
             QStringLiteral("Приемник монет неисправен"));
    QCOMPARE(rig.changer.pendingError(), QStringLiteral("Приемник монет неисправен"));
    QVERIFY(RecordingChanger::resetPending());

    // the device no longer reports anything; the delayed error still comes first
    rig.model.setActivity(0);
    rig.serial.writes.clear();
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkState(); }),
             QStringLiteral("Приемник монет неисправен"));
    QVERIFY(rig.serial.writes.isEmpty());
    QCOMPARE(significant(log), QStringList{QStringLiteral("ERROR Приемник монет неисправен")});
    QVERIFY(rig.changer.pendingError().isEmpty());
    QVERIFY(RecordingChanger::resetPending());

    // the call after: the reset sequence, then the ordinary state check
    log.clear();
    rig.model.on(1, QByteArray(), QByteArray());
    rig.model.on(254, QByteArray(), QByteArray());
    rig.changer.checkState();
    QCOMPARE(rig.serial.writes, QList<QByteArray>{req(1)} + quietStateCheck());
    QCOMPARE(rig.changer.sleeps, QList<int>{5000});
    QVERIFY(!RecordingChanger::resetPending());
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Выполняется сброс"),
                                            QStringLiteral("INFO Проверка состояния устройства"),
                                            QStringLiteral("INFO Проверка соединения с устройством")}));

    // and the one after that has nothing left to reset
    rig.serial.writes.clear();
    rig.changer.checkState();
    QCOMPARE(rig.serial.writes, quietStateCheck());
}

void TestSupervision::delayedWarningIsStillRaisedByTheNextStateCheck()
{
    Rig rig;
    rig.model.setActivity(4096);
    rig.model.setErrorStatus(1, 103);
    rig.model.setSelfcheck(35, 1);
    testsupport::LogCapture log;
    rig.changer.checkError();
    QCOMPARE(significant(log), QStringList{QStringLiteral("WARN Приемник монет, заклинивание")});
    QVERIFY(!RecordingChanger::resetPending());
    rig.serial.writes.clear();
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkState(); }),
             QStringLiteral("Приемник монет, заклинивание"));
    QVERIFY(rig.serial.writes.isEmpty());
    QVERIFY(!RecordingChanger::resetPending());
}

void TestSupervision::linkFailureDuringCheckLeavesTheResetFlag()
{
    Rig rig;
    rig.model.setActivity(16);
    rig.model.on(122, QByteArray(), DeviceModel::nak());
    QVERIFY_EXCEPTION_THROWN(rig.changer.checkError(), CcTalk::NakException);
    QVERIFY(!RecordingChanger::resetPending());

    rig.model.setErrorStatus(1, 104);
    rig.model.on(232, QByteArray(), DeviceModel::silent());
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkError(); }), QStringLiteral("Нет связи"));
    QVERIFY(!RecordingChanger::resetPending());
}

void TestSupervision::waitReturnsAtOnceWhenTheBitIsClear()
{
    Rig rig;
    rig.model.setActivity(4 | 16 | 64);
    testsupport::LogCapture log;
    rig.changer.waitNotState(8, 300, QStringLiteral("завершения выдачи монет"), true);
    QCOMPARE(rig.serial.writes, QList<QByteArray>{req(123)});
    QVERIFY(significant(log).isEmpty());
    QVERIFY(rig.changer.sleeps.isEmpty());
}

void TestSupervision::waitWithNoPollsTimesOutAtOnce()
{
    Rig rig;
    rig.model.setActivity(8);
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>(
                 [&] { rig.changer.waitNotState(8, 0, QStringLiteral("завершения выдачи монет"), true); }),
             QStringLiteral("Таймаут ожидания завершения выдачи монет"));
    QCOMPARE(rig.serial.writes, QList<QByteArray>{req(123)});
    QVERIFY(rig.changer.sleeps.isEmpty());
    QCOMPARE(significant(log),
             QStringList({QStringLiteral("INFO Выполняется ожидание завершения выдачи монет..."),
                          QStringLiteral("ERROR Таймаут ожидания завершения выдачи монет")}));
}

void TestSupervision::waitWithNegativePollsTimesOutAtOnce()
{
    Rig rig;
    rig.model.setActivity(4);
    QCOMPARE(thrownText<CcTalk::Exception>(
                 [&] { rig.changer.waitNotState(4, -5, QStringLiteral("завершения приема монет"), false); }),
             QStringLiteral("Таймаут ожидания завершения приема монет"));
    QCOMPARE(rig.serial.writes.size(), 1);
    QVERIFY(rig.changer.sleeps.isEmpty());
}

void TestSupervision::waitTimesOutAfterItsPolls()
{
    Rig rig;
    rig.model.setActivity(8);
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>(
                 [&] { rig.changer.waitNotState(8, 3, QStringLiteral("завершения выдачи монет"), true); }),
             QStringLiteral("Таймаут ожидания завершения выдачи монет"));
    // first read, then per poll the fault check and the next read
    QCOMPARE(rig.serial.writes, repeat(req(123), 7));
    QCOMPARE(rig.changer.sleeps, QList<int>({1000, 1000, 1000}));
    QCOMPARE(significant(log),
             QStringList({QStringLiteral("INFO Выполняется ожидание завершения выдачи монет..."),
                          QStringLiteral("ERROR Таймаут ожидания завершения выдачи монет")}));
}

void TestSupervision::waitWithoutErrorChecks()
{
    Rig rig;
    rig.model.setActivity(64 | 16);
    rig.model.setErrorStatus(1, 101);
    QVERIFY_EXCEPTION_THROWN(
        rig.changer.waitNotState(64, 3, QStringLiteral("завершения инициализации устройства"), false),
        CcTalk::Exception);
    QCOMPARE(rig.serial.writes, repeat(req(123), 4));
    QCOMPARE(rig.changer.sleeps, QList<int>({1000, 1000, 1000}));
    QVERIFY(!RecordingChanger::resetPending());
}

void TestSupervision::waitEndsWhenTheBitClearsOnTheLastPoll()
{
    Rig rig;
    rig.model.setActivitySequence({8, 8, 0});
    rig.changer.waitNotState(8, 2, QStringLiteral("завершения выдачи монет"), false);
    QCOMPARE(rig.serial.writes, repeat(req(123), 3));
    QCOMPARE(rig.changer.sleeps, QList<int>({1000, 1000}));
}

void TestSupervision::waitEndsOnAFault()
{
    Rig rig;
    rig.model.setActivitySequence({8, 8, 8 | 16});
    rig.model.setErrorStatus(2, 2);
    rig.model.setSelfcheck(0, 0);
    QCOMPARE(thrownText<CcTalk::Exception>(
                 [&] { rig.changer.waitNotState(8, 300, QStringLiteral("завершения выдачи монет"), true); }),
             QStringLiteral("Хоппер 2, заклинивание"));
    QCOMPARE(rig.serial.writes,
             QList<QByteArray>({req(123), req(123), req(123), req(123), req(122), req(232)}));
    QCOMPARE(rig.changer.sleeps, QList<int>({1000, 1000}));
}

void TestSupervision::resetOnlyWhenFlagged()
{
    Rig rig;
    rig.model.on(1, QByteArray(), QByteArray());
    rig.changer.resetIfNeeded();
    QVERIFY(rig.serial.writes.isEmpty());
    QVERIFY(rig.changer.sleeps.isEmpty());

    RecordingChanger::setResetPending(true);
    testsupport::LogCapture log;
    rig.changer.resetIfNeeded();
    QCOMPARE(rig.serial.writes, QList<QByteArray>{req(1)});
    QCOMPARE(rig.changer.sleeps, QList<int>{5000});
    QVERIFY(!RecordingChanger::resetPending());
    QCOMPARE(significant(log), QStringList{QStringLiteral("INFO Выполняется сброс")});
}

void TestSupervision::failedResetIsTriedAgain()
{
    Rig rig;
    rig.model.onReplies(1, QByteArray(), {DeviceModel::nak(), DeviceModel::data(QByteArray())});
    RecordingChanger::setResetPending(true);
    QVERIFY_EXCEPTION_THROWN(rig.changer.resetIfNeeded(), CcTalk::NakException);
    QVERIFY(RecordingChanger::resetPending());
    QVERIFY(rig.changer.sleeps.isEmpty());
    rig.changer.resetIfNeeded();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(1), req(1)}));
    QVERIFY(!RecordingChanger::resetPending());
    QCOMPARE(rig.changer.sleeps, QList<int>{5000});
}

void TestSupervision::resetFlagIsClassWide()
{
    Rig first;
    Rig second;
    first.model.setActivity(16);
    first.model.setErrorStatus(1, 252);
    first.model.setSelfcheck(0, 0);
    QVERIFY_EXCEPTION_THROWN(first.changer.checkError(), CcTalk::Exception);
    QVERIFY(RecordingChanger::resetPending());

    second.model.setActivity(0);
    second.model.on(1, QByteArray(), QByteArray());
    second.model.on(254, QByteArray(), QByteArray());
    second.changer.checkState();
    QCOMPARE(second.serial.writes, QList<QByteArray>{req(1)} + quietStateCheck());
    QVERIFY(!RecordingChanger::resetPending());

    first.serial.writes.clear();
    first.changer.resetIfNeeded();
    QVERIFY(first.serial.writes.isEmpty());
    QVERIFY(first.changer.sleeps.isEmpty());
}

void TestSupervision::stateCheckOfAQuietDevice()
{
    Rig rig;
    rig.model.setActivity(0);
    rig.model.on(254, QByteArray(), QByteArray());
    testsupport::LogCapture log;
    rig.changer.checkState();
    QCOMPARE(rig.serial.writes, quietStateCheck());
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Проверка состояния устройства"),
                                            QStringLiteral("INFO Проверка соединения с устройством")}));
    QVERIFY(rig.changer.sleeps.isEmpty());
}

void TestSupervision::stateCheckStopsAnAcceptanceStillRunning()
{
    Rig rig;
    rig.model.setActivitySequence({0, 4, 0});
    rig.model.on(254, QByteArray(), QByteArray());
    rig.model.on(231, bytes({0, 0}), QByteArray());
    rig.changer.checkState();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(254), req(123), req(123), req(231, bytes({0, 0})),
                                                   req(123), req(123), req(123)}));
    QVERIFY(!rig.changer.isAccepting());
}

void TestSupervision::stateCheckWaitsForAPayout()
{
    Rig rig;
    rig.model.setActivitySequence({0, 8, 8, 0, 0});
    rig.model.on(254, QByteArray(), QByteArray());
    testsupport::LogCapture log;
    rig.changer.checkState();
    QCOMPARE(rig.serial.writes, QList<QByteArray>{req(254)} + repeat(req(123), 6));
    QCOMPARE(rig.changer.sleeps, QList<int>{1000});
    QVERIFY(
        significant(log).contains(QStringLiteral("INFO Выполняется ожидание завершения выдачи монет...")));
}

void TestSupervision::stateCheckPayoutTimeout()
{
    Rig rig;
    rig.model.setActivitySequence({0, 8});
    rig.model.on(254, QByteArray(), QByteArray());
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkState(); }),
             QStringLiteral("Таймаут ожидания завершения выдачи монет"));
    QCOMPARE(rig.changer.sleeps.size(), 300);
    QCOMPARE(rig.changer.sleeps.count(1000), 300);
    // poll, initialisation read, acceptance read, first payout read, then two reads per poll
    QCOMPARE(rig.serial.writes.size(), 1 + 3 + 2 * 300);
}

void TestSupervision::stateCheckCallsItsStepsVirtually()
{
    SpyChanger changer;
    testsupport::FakeSerialDevice serial;
    DeviceModel model;
    changer.setAddress(55);
    changer.setSerial(&serial);
    serial.setResponder(model.responder());
    model.setActivity(4);
    changer.checkState();
    QCOMPARE(
        changer.calls,
        QStringList({QStringLiteral("resetIfNeeded"), QStringLiteral("connect"), QStringLiteral("cashInStop"),
                     QStringLiteral("waitNotState(8, 300, завершения выдачи монет, true)"),
                     QStringLiteral("checkError")}));
    QCOMPARE(serial.writes, QList<QByteArray>{req(123)});
}

void TestSupervision::stateCheckRaisesAFault()
{
    Rig rig;
    rig.model.setActivitySequence({0, 0, 0, 16});
    rig.model.on(254, QByteArray(), QByteArray());
    rig.model.setErrorStatus(1, 252);
    rig.model.setSelfcheck(0, 0);
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkState(); }),
             QStringLiteral("Кэшбокс отсутствует"));
    QCOMPARE(rig.serial.writes, quietStateCheck() + QList<QByteArray>({req(122), req(232)}));
    QVERIFY(RecordingChanger::resetPending());
}

QTEST_GUILESS_MAIN(TestSupervision)
#include "tst_supervision.moc"
