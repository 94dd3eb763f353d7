#include "cctalk/exception.h"
#include "support/columns.h"
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

// The activity register, the error status (module -1: not answered) and the
// self-check answer the device gives.
void addDeviceColumns()
{
    testsupport::columns<QList<quint16>, int, int, int, int>("activity", "module", "status", "fault",
                                                             "extra");
}

void setUpDevice(SimChangerRig& rig)
{
    QFETCH(QList<quint16>, activity);
    QFETCH(int, module);
    QFETCH(int, status);
    QFETCH(int, fault);
    QFETCH(int, extra);
    rig.activitySequence(activity);
    if (module >= 0)
        rig.device().setErrorStatus(quint8(module), quint8(status));
    else
        rig.refuse(122);
    if (fault >= 0)
        rig.device().setSelfCheck(quint8(fault), quint8(extra));
    else
        rig.refuse(232);
}

} // namespace

class TestSupervision : public QObject
{
    Q_OBJECT
private slots:
    void cleanup() { RecordingChanger::setResetPending(false); }

    void checkError_data();
    void checkError();
    void delayedErrorIsRaisedAgainThenTheDeviceIsReset();
    void delayedWarningIsStillRaisedByTheNextStateCheck();
    void linkFailureDuringCheckLeavesTheResetFlag();

    void wait_data();
    void wait();

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

void TestSupervision::checkError_data()
{
    addDeviceColumns();
    testsupport::columns<QString, QList<QByteArray>, QStringList, bool, QString>("thrown", "writes", "log",
                                                                                 "reset", "pending");

    const QList<QByteArray> all{req(123), req(122), req(232)};
    QTest::newRow("withoutFaultBitsAsksOnlyTheRegister")
        << QList<quint16>{4 | 8 | 64 | 32 | 0x8000} << -1 << 0 << -1 << 0 << QString()
        << QList<QByteArray>{req(123)} << QStringList() << false << QString();
    QTest::newRow("warningWithNonFatalStatusOnlyLogs")
        << QList<quint16>{4096} << 3 << 2 << 0 << 7 << QString() << all
        << QStringList{QStringLiteral("WARN Хоппер 3, заклинивание")} << false << QString();
    QTest::newRow("warningBecomesFaultWhenTheStatusIsFatal")
        << QList<quint16>{4096} << 1 << 101 << 0 << 0 << QStringLiteral("Приемник монет, заклинивание") << all
        << QStringList{QStringLiteral("ERROR Приемник монет, заклинивание")} << true << QString();
    QTest::newRow("warningBecomesFaultWhenTheSelfcheckIsFatal")
        << QList<quint16>{4096 | 16} << 2 << 1 << 51 << 1
        << QStringLiteral("Открыта дверь в устройстве поштучной подачи") << all
        << QStringList{QStringLiteral("ERROR Открыта дверь в устройстве поштучной подачи")} << true
        << QString();
    QTest::newRow("warningPrefersTheSelfcheckMessage")
        << QList<quint16>{4096 | 16} << 2 << 1 << 3 << 0 << QString() << all
        << QStringList{QStringLiteral("WARN Ошибка датчика валидации")} << false << QString();
    // module 0: no error, even with a fatal code
    QTest::newRow("flaggedFaultWithoutReportedErrorIsIgnored")
        << QList<quint16>{16} << 0 << 101 << -1 << 0 << QString() << QList<QByteArray>({req(123), req(122)})
        << QStringList() << false << QString();
    QTest::newRow("faultBitRaisesTheStatusMessage")
        << QList<quint16>{16} << 4 << 4 << 0 << 0 << QStringLiteral("Хоппер 4 неисправен") << all
        << QStringList{QStringLiteral("ERROR Хоппер 4 неисправен")} << true << QString();
}

void TestSupervision::checkError()
{
    QFETCH(QString, thrown);
    QFETCH(QList<QByteArray>, writes);
    QFETCH(QStringList, log);
    QFETCH(bool, reset);
    QFETCH(QString, pending);
    SimChangerRig rig;
    setUpDevice(rig);
    testsupport::LogCapture capture;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkError(); }), thrown);
    QCOMPARE(rig.writes(), writes);
    QCOMPARE(significant(capture), log);
    QCOMPARE(RecordingChanger::resetPending(), reset);
    QCOMPARE(rig.changer.pendingError(), pending);
}

void TestSupervision::delayedErrorIsRaisedAgainThenTheDeviceIsReset()
{
    SimChangerRig rig;
    rig.device().setActivityBits(16);
    rig.device().setErrorStatus(1, 104);
    rig.device().setSelfCheck(35, 2);
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkError(); }),
             QStringLiteral("Приемник монет неисправен"));
    QCOMPARE(rig.changer.pendingError(), QStringLiteral("Приемник монет неисправен"));
    QVERIFY(RecordingChanger::resetPending());

    // the device no longer reports anything; the delayed error still comes first
    rig.device().setActivityBits(0);
    rig.line.clearTransactions();
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkState(); }),
             QStringLiteral("Приемник монет неисправен"));
    QVERIFY(rig.writes().isEmpty());
    QCOMPARE(significant(log), QStringList{QStringLiteral("ERROR Приемник монет неисправен")});
    QVERIFY(rig.changer.pendingError().isEmpty());
    QVERIFY(RecordingChanger::resetPending());

    // the call after: the reset sequence, then the ordinary state check
    log.clear();
    rig.changer.checkState();
    QCOMPARE(rig.writes(), QList<QByteArray>{req(1)} + quietStateCheck());
    QCOMPARE(rig.changer.sleeps, QList<int>{5000});
    QVERIFY(!RecordingChanger::resetPending());
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Выполняется сброс"),
                                            QStringLiteral("INFO Проверка состояния устройства"),
                                            QStringLiteral("INFO Проверка соединения с устройством")}));

    // and the one after that has nothing left to reset
    rig.line.clearTransactions();
    rig.changer.checkState();
    QCOMPARE(rig.writes(), quietStateCheck());
}

void TestSupervision::delayedWarningIsStillRaisedByTheNextStateCheck()
{
    SimChangerRig rig;
    rig.device().setActivityBits(4096);
    rig.device().setErrorStatus(1, 103);
    rig.device().setSelfCheck(35, 1);
    testsupport::LogCapture log;
    rig.changer.checkError();
    QCOMPARE(significant(log), QStringList{QStringLiteral("WARN Приемник монет, заклинивание")});
    QVERIFY(!RecordingChanger::resetPending());
    rig.line.clearTransactions();
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkState(); }),
             QStringLiteral("Приемник монет, заклинивание"));
    QVERIFY(rig.writes().isEmpty());
    QVERIFY(!RecordingChanger::resetPending());
}

void TestSupervision::linkFailureDuringCheckLeavesTheResetFlag()
{
    SimChangerRig rig;
    rig.device().setActivityBits(16);
    rig.refuse(122);
    QVERIFY_EXCEPTION_THROWN(rig.changer.checkError(), CcTalk::NakException);
    QVERIFY(!RecordingChanger::resetPending());

    rig.device().setErrorStatus(1, 104);
    rig.removeHook(122);
    rig.beforeAnswer(232, [&rig] { rig.line.dropAnswersTo(232, 1); });
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkError(); }), QStringLiteral("Нет связи"));
    QVERIFY(!RecordingChanger::resetPending());
}

void TestSupervision::wait_data()
{
    addDeviceColumns();
    testsupport::columns<int, int, QString, bool, QString, QList<QByteArray>, QList<int>, QStringList, bool>(
        "bit", "polls", "what", "checkErrors", "thrown", "writes", "sleeps", "log", "reset");

    const QString payout = QStringLiteral("завершения выдачи монет");
    const QStringList payoutTimeout{QStringLiteral("INFO Выполняется ожидание завершения выдачи монет..."),
                                    QStringLiteral("ERROR Таймаут ожидания завершения выдачи монет")};
    const QList<int> threePolls{1000, 1000, 1000};
    QTest::newRow("returnsAtOnceWhenTheBitIsClear")
        << QList<quint16>{4 | 16 | 64} << -1 << 0 << -1 << 0 << 8 << 300 << payout << true << QString()
        << QList<QByteArray>{req(123)} << QList<int>() << QStringList() << false;
    QTest::newRow("withNoPollsTimesOutAtOnce")
        << QList<quint16>{8} << -1 << 0 << -1 << 0 << 8 << 0 << payout << true
        << QStringLiteral("Таймаут ожидания завершения выдачи монет") << QList<QByteArray>{req(123)}
        << QList<int>() << payoutTimeout << false;
    QTest::newRow("withNegativePollsTimesOutAtOnce")
        << QList<quint16>{4} << -1 << 0 << -1 << 0 << 4 << -5 << QStringLiteral("завершения приема монет")
        << false << QStringLiteral("Таймаут ожидания завершения приема монет") << QList<QByteArray>{req(123)}
        << QList<int>()
        << QStringList({QStringLiteral("INFO Выполняется ожидание завершения приема монет..."),
                        QStringLiteral("ERROR Таймаут ожидания завершения приема монет")})
        << false;
    // first read, then per poll the fault check and the next read
    QTest::newRow("timesOutAfterItsPolls")
        << QList<quint16>{8} << -1 << 0 << -1 << 0 << 8 << 3 << payout << true
        << QStringLiteral("Таймаут ожидания завершения выдачи монет") << repeat(req(123), 7) << threePolls
        << payoutTimeout << false;
    QTest::newRow("withoutErrorChecks")
        << QList<quint16>{64 | 16} << 1 << 101 << -1 << 0 << 64 << 3
        << QStringLiteral("завершения инициализации устройства") << false
        << QStringLiteral("Таймаут ожидания завершения инициализации устройства") << repeat(req(123), 4)
        << threePolls
        << QStringList({QStringLiteral("INFO Выполняется ожидание завершения инициализации устройства..."),
                        QStringLiteral("ERROR Таймаут ожидания завершения инициализации устройства")})
        << false;
    QTest::newRow("endsWhenTheBitClearsOnTheLastPoll")
        << QList<quint16>{8, 8, 0} << -1 << 0 << -1 << 0 << 8 << 2 << payout << false << QString()
        << repeat(req(123), 3) << QList<int>({1000, 1000})
        << QStringList{QStringLiteral("INFO Выполняется ожидание завершения выдачи монет...")} << false;
    QTest::newRow("endsOnAFault")
        << QList<quint16>{8, 8, 8 | 16} << 2 << 2 << 0 << 0 << 8 << 300 << payout << true
        << QStringLiteral("Хоппер 2, заклинивание")
        << QList<QByteArray>({req(123), req(123), req(123), req(123), req(122), req(232)})
        << QList<int>({1000, 1000})
        << QStringList({QStringLiteral("INFO Выполняется ожидание завершения выдачи монет..."),
                        QStringLiteral("ERROR Хоппер 2, заклинивание")})
        << true;
}

void TestSupervision::wait()
{
    QFETCH(int, bit);
    QFETCH(int, polls);
    QFETCH(QString, what);
    QFETCH(bool, checkErrors);
    QFETCH(QString, thrown);
    QFETCH(QList<QByteArray>, writes);
    QFETCH(QList<int>, sleeps);
    QFETCH(QStringList, log);
    QFETCH(bool, reset);
    SimChangerRig rig;
    setUpDevice(rig);
    testsupport::LogCapture capture;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.waitNotState(bit, polls, what, checkErrors); }),
             thrown);
    QCOMPARE(rig.writes(), writes);
    QCOMPARE(rig.changer.sleeps, sleeps);
    QCOMPARE(significant(capture), log);
    QCOMPARE(RecordingChanger::resetPending(), reset);
}

void TestSupervision::resetOnlyWhenFlagged()
{
    SimChangerRig rig;
    rig.changer.resetIfNeeded();
    QVERIFY(rig.writes().isEmpty());
    QVERIFY(rig.changer.sleeps.isEmpty());

    RecordingChanger::setResetPending(true);
    testsupport::LogCapture log;
    rig.changer.resetIfNeeded();
    QCOMPARE(rig.writes(), QList<QByteArray>{req(1)});
    QCOMPARE(rig.changer.sleeps, QList<int>{5000});
    QVERIFY(!RecordingChanger::resetPending());
    QCOMPARE(significant(log), QStringList{QStringLiteral("INFO Выполняется сброс")});
}

void TestSupervision::failedResetIsTriedAgain()
{
    SimChangerRig rig;
    rig.line.nakNext();
    RecordingChanger::setResetPending(true);
    QVERIFY_EXCEPTION_THROWN(rig.changer.resetIfNeeded(), CcTalk::NakException);
    QVERIFY(RecordingChanger::resetPending());
    QVERIFY(rig.changer.sleeps.isEmpty());
    rig.changer.resetIfNeeded();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(1), req(1)}));
    QVERIFY(!RecordingChanger::resetPending());
    QCOMPARE(rig.changer.sleeps, QList<int>{5000});
}

void TestSupervision::resetFlagIsClassWide()
{
    SimChangerRig first;
    SimChangerRig second;
    first.device().setActivityBits(16);
    first.device().setErrorStatus(1, 252);
    first.device().setSelfCheck(0, 0);
    QVERIFY_EXCEPTION_THROWN(first.changer.checkError(), CcTalk::Exception);
    QVERIFY(RecordingChanger::resetPending());

    second.device().setActivityBits(0);
    second.changer.checkState();
    QCOMPARE(second.writes(), QList<QByteArray>{req(1)} + quietStateCheck());
    QVERIFY(!RecordingChanger::resetPending());

    first.line.clearTransactions();
    first.changer.resetIfNeeded();
    QVERIFY(first.writes().isEmpty());
    QVERIFY(first.changer.sleeps.isEmpty());
}

void TestSupervision::stateCheckOfAQuietDevice()
{
    SimChangerRig rig;
    testsupport::LogCapture log;
    rig.changer.checkState();
    QCOMPARE(rig.writes(), quietStateCheck());
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Проверка состояния устройства"),
                                            QStringLiteral("INFO Проверка соединения с устройством")}));
    QVERIFY(rig.changer.sleeps.isEmpty());
}

void TestSupervision::stateCheckStopsAnAcceptanceStillRunning()
{
    SimChangerRig rig;
    rig.activitySequence({0, 4, 0});
    rig.changer.checkState();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(254), req(123), req(123), req(231, bytes({0, 0})), req(123),
                                              req(123), req(123)}));
    QVERIFY(!rig.changer.isAccepting());
}

void TestSupervision::stateCheckWaitsForAPayout()
{
    SimChangerRig rig;
    rig.activitySequence({0, 8, 8, 0, 0});
    testsupport::LogCapture log;
    rig.changer.checkState();
    QCOMPARE(rig.writes(), QList<QByteArray>{req(254)} + repeat(req(123), 6));
    QCOMPARE(rig.changer.sleeps, QList<int>{1000});
    QVERIFY(
        significant(log).contains(QStringLiteral("INFO Выполняется ожидание завершения выдачи монет...")));
}

void TestSupervision::stateCheckPayoutTimeout()
{
    SimChangerRig rig;
    rig.activitySequence({0, 8});
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkState(); }),
             QStringLiteral("Таймаут ожидания завершения выдачи монет"));
    QCOMPARE(rig.changer.sleeps.size(), 300);
    QCOMPARE(rig.changer.sleeps.count(1000), 300);
    // poll, initialisation read, acceptance read, first payout read, then two reads per poll
    QCOMPARE(rig.writes().size(), 1 + 3 + 2 * 300);
}

void TestSupervision::stateCheckCallsItsStepsVirtually()
{
    SimRigOf<SpyChanger> rig;
    rig.device().setActivityBits(4);
    rig.changer.checkState();
    QCOMPARE(
        rig.changer.calls,
        QStringList({QStringLiteral("resetIfNeeded"), QStringLiteral("connect"), QStringLiteral("cashInStop"),
                     QStringLiteral("waitNotState(8, 300, завершения выдачи монет, true)"),
                     QStringLiteral("checkError")}));
    QCOMPARE(rig.writes(), QList<QByteArray>{req(123)});
}

void TestSupervision::stateCheckRaisesAFault()
{
    SimChangerRig rig;
    rig.activitySequence({0, 0, 0, 16});
    rig.device().setErrorStatus(1, 252);
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkState(); }),
             QStringLiteral("Кэшбокс отсутствует"));
    QCOMPARE(rig.writes(), quietStateCheck() + QList<QByteArray>({req(122), req(232)}));
    QVERIFY(RecordingChanger::resetPending());
}

QTEST_GUILESS_MAIN(TestSupervision)
#include "tst_supervision.moc"
