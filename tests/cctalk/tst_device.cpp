#include "cctalk/commands.h"
#include "cctalk/device.h"
#include "support/columns.h"
#include "support/fakeserialdevice.h"
#include "support/frames.h"
#include "support/logcapture.h"
#include "support/thrown.h"
#include "testdevice.h"

#include <log4cxx/logger.h>

#include <QtTest>

using cctalktest::TestDevice;
using testsupport::FakeSerialDevice;
using testsupport::hex;
using testsupport::LogCapture;
using testsupport::reply;
using testsupport::request;
using testsupport::thrown;
using testsupport::thrownText;

namespace {

QString bytesText(const QByteArray& bytes)
{
    QString out;
    for (char c : bytes)
        out += QString::asprintf(" %02X", unsigned(quint8(c)));
    return out;
}

QString sent(const QByteArray& bytes)
{
    return QStringLiteral("Отправка:") + bytesText(bytes);
}

QString got(const QByteArray& bytes)
{
    return QStringLiteral("Получено:") + bytesText(bytes);
}

template <class T> QList<T> repeated(const T& value, int times)
{
    QList<T> out;
    for (int i = 0; i < times; ++i)
        out << value;
    return out;
}

QStringList errorLines(const LogCapture& log)
{
    return log.texts(QStringLiteral("ERROR"));
}

// Fake line whose waits move a fake clock on, for the time bound of an attempt.
class SlowLine : public FakeSerialDevice
{
public:
    bool waitForInput(int msecs) override
    {
        now += stepMsecs;
        return FakeSerialDevice::waitForInput(msecs);
    }
    qint64 now = 0;
    qint64 stepMsecs = 1000;
};

// A line that says bytes are ready and then delivers none.
class EmptyReadLine : public FakeSerialDevice
{
public:
    bool waitForInput(int msecs) override
    {
        FakeSerialDevice::waitForInput(msecs);
        return true;
    }
    QByteArray read(int maxSize) override
    {
        if (pendingChunks() == 0) {
            ++reads;
            return QByteArray();
        }
        return FakeSerialDevice::read(maxSize);
    }
};

// A simple poll that takes an answer with any data, for the tests of the exchange itself:
// they tell answers apart by their data.
class MarkedPoll : public CcTalk::Request
{
public:
    MarkedPoll() : CcTalk::Request(CcTalk::Header::simplePoll, QByteArray()) {}
};

QList<QByteArray> garbageChunks(int count, int size)
{
    QList<QByteArray> chunks;
    for (int i = 0; i < count; ++i)
        chunks << QByteArray(size, '\xff');
    return chunks;
}

} // namespace

class TestDevice_ : public QObject
{
    Q_OBJECT

    FakeSerialDevice* line = nullptr;
    TestDevice* device = nullptr;

    // The first attempt's answer was lost: after one pause the request went out again and
    // the second answer was taken.
    void checkSecondAttemptTaken(const CcTalk::Response& r, const QByteArray& data, int writes,
                                 const LogCapture& log)
    {
        QCOMPARE(QByteArray(r), data);
        QCOMPARE(writes, 2);
        QCOMPARE(device->pauses, QList<int>{200});
        QCOMPARE(errorLines(log), QStringList{QStringLiteral("Нет связи")});
    }

private slots:
    void init()
    {
        line = new FakeSerialDevice;
        device = new TestDevice;
        device->setAddress(55);
        device->setSerial(line);
    }

    void cleanup()
    {
        delete device;
        delete line;
        device = nullptr;
        line = nullptr;
    }

    void defaults()
    {
        TestDevice d;
        QCOMPARE(int(d.getAddress()), 0);
        QVERIFY(d.getSerial() == nullptr);
        QVERIFY(d.getName().isEmpty());
        QVERIFY(d.getLogger() == logging::logger("cctalk"));
        QCOMPARE(d.getBusyRetries(), 60);
        d.setAddress(40);
        QCOMPARE(int(d.getAddress()), 40);
        d.setSerial(line);
        QVERIFY(d.getSerial() == line);
        d.setLogger(logging::logger("cpibcr"));
        QVERIFY(d.getLogger() == logging::logger("cpibcr"));
        QObject parent;
        auto* child = new TestDevice(&parent);
        QVERIFY(child->parent() == &parent);
    }

    void answerAfterEcho()
    {
        LogCapture log;
        line->queueReply(reply());
        const CcTalk::Response r = device->exec(CcTalk::SimplePoll());
        QVERIFY(r.isValid());
        QCOMPARE(int(r.getSource()), 55);
        QCOMPARE(int(r.getDestination()), 1);
        QCOMPARE(line->writes, QList<QByteArray>{hex("370001feca")});
        QCOMPARE(line->discards, 1);
        QCOMPARE(line->waitTimeouts, QList<int>({1000, 1000}));
        QVERIFY(device->pauses.isEmpty());
        QCOMPARE(log.formatted(), QStringList({
                                      QStringLiteral("DEBUG Выполнение команды simplePoll (254)"),
                                      QStringLiteral("TRACE Отправка: 37 00 01 FE CA"),
                                      QStringLiteral("TRACE Получено: 37 00 01 FE CA 01 00 37 00 C8"),
                                  }));
        for (const testsupport::LogLine& l : log.lines())
            QCOMPARE(l.logger, QStringLiteral("cctalk"));
        QCOMPARE(log.lines().at(1).raw, QStringLiteral("Отправка: 37 00 01 FE CA").toUtf8());
    }

    void requestIsAddressed()
    {
        device->setAddress(40);
        line->queueReply(testsupport::frame(1, 40, 0, hex("5255313030412c01")));
        const CcTalk::ReqHopperBalance req(3);
        QCOMPARE(QByteArray(device->exec(req)), hex("5255313030412c01"));
        QCOMPARE(line->writes.first(), testsupport::frame(40, 1, 119, hex("03")));
        QCOMPARE(int(req.getDestination()), 40);
    }

    void answerDataReturned()
    {
        line->queueReply(reply(hex("5255303130412c01")));
        const CcTalk::ReqHopperBalanceResp r = device->exec(CcTalk::ReqHopperBalance(1));
        QCOMPARE(r.getDenom().getName(), QStringLiteral("RU010A"));
        QCOMPARE(r.getCount(), 300u);
    }

    void splitReads_data()
    {
        QTest::addColumn<QList<QByteArray>>("chunks");
        const QByteArray answer = reply(hex("a1b2c3"));
        QTest::newRow("whole") << QList<QByteArray>{answer};
        for (int i = 1; i < answer.size(); ++i)
            QTest::newRow(qPrintable(QStringLiteral("at %1").arg(i)))
                << QList<QByteArray>{answer.left(i), answer.mid(i)};
        QList<QByteArray> bytes;
        for (char c : answer)
            bytes << QByteArray(1, c);
        QTest::newRow("byte by byte") << bytes;
        QTest::newRow("three pieces") << QList<QByteArray>{answer.left(1), answer.mid(1, 5), answer.mid(6)};
    }

    void splitReads()
    {
        QFETCH(QList<QByteArray>, chunks);
        LogCapture log;
        line->queueChunks(chunks);
        const CcTalk::Response r = device->exec(MarkedPoll());
        QCOMPARE(QByteArray(r), hex("a1b2c3"));
        QCOMPARE(line->writes.size(), 1);
        QCOMPARE(line->reads, 1 + chunks.size());
        QCOMPARE(line->waitTimeouts.size(), 1 + chunks.size());
        QVERIFY(device->pauses.isEmpty());
        QCOMPARE(log.texts(QStringLiteral("TRACE")).last(), got(request(254) + reply(hex("a1b2c3"))));
    }

    void echoSplitAcrossReads()
    {
        // The line delivers echo and answer cut at arbitrary places.
        line->setEcho(false);
        const QByteArray all = request(254) + reply(hex("07"));
        line->queueChunks({all.left(3), all.mid(3, 4), all.mid(7)});
        const CcTalk::Response r = device->exec(MarkedPoll());
        QCOMPARE(QByteArray(r), hex("07"));
        QCOMPARE(line->reads, 3);
    }

    void garbageBeforeAnswer()
    {
        LogCapture log;
        line->queueChunks({hex("ffff00"), reply(hex("42"))});
        const CcTalk::Response r = device->exec(MarkedPoll());
        QCOMPARE(QByteArray(r), hex("42"));
        QCOMPARE(line->writes.size(), 1);
        QVERIFY(errorLines(log).isEmpty());
        QCOMPARE(log.texts(QStringLiteral("TRACE")).last(),
                 got(request(254) + hex("ffff00") + reply(hex("42"))));
    }

    void staleInputIsDiscarded()
    {
        line->injectStale(reply(hex("99")));
        line->queueReply(reply(hex("11")));
        const CcTalk::Response r = device->exec(MarkedPoll());
        QCOMPARE(QByteArray(r), hex("11"));
        QCOMPARE(line->discards, 1);
    }

    void silenceFailsAfterFiveAttempts()
    {
        LogCapture log;
        line->queueSilence(5);
        try {
            device->exec(CcTalk::SimplePoll());
            QFAIL("no exception");
        } catch (const CcTalk::NakException&) {
            QFAIL("NAK");
        } catch (const CcTalk::BusyException&) {
            QFAIL("BUSY");
        } catch (const CcTalk::Exception& e) {
            QCOMPARE(QByteArray(e.what()), QStringLiteral("Нет связи").toUtf8());
            QCOMPARE(e.message(), QStringLiteral("Нет связи"));
        }
        QCOMPARE(line->writes, repeated(request(254), 5));
        QCOMPARE(line->discards, 5);
        QCOMPARE(device->pauses, repeated(200, 5));
        QCOMPARE(errorLines(log), QStringList(repeated(QStringLiteral("Нет связи"), 5)));
        QStringList expected;
        expected << QStringLiteral("DEBUG Выполнение команды simplePoll (254)");
        for (int i = 0; i < 5; ++i)
            expected << QStringLiteral("TRACE Отправка: 37 00 01 FE CA")
                     << QStringLiteral("TRACE Получено: 37 00 01 FE CA") << QStringLiteral("ERROR Нет связи");
        QCOMPARE(log.formatted(), expected);
    }

    void silenceWithoutEchoTracesNothingReceived()
    {
        LogCapture log;
        line->setEcho(false);
        line->queueSilence(1);
        line->queueReply(reply());
        device->exec(CcTalk::SimplePoll());
        QCOMPARE(log.texts(QStringLiteral("TRACE")).at(1), QStringLiteral("Получено:"));
    }

    void answerAtFifthAttempt()
    {
        LogCapture log;
        line->queueSilence(4);
        line->queueReply(reply(hex("05")));
        const CcTalk::Response r = device->exec(MarkedPoll());
        QCOMPARE(QByteArray(r), hex("05"));
        QCOMPARE(line->writes.size(), 5);
        QCOMPARE(line->discards, 5);
        QCOMPARE(device->pauses, repeated(200, 4));
        QCOMPARE(errorLines(log), QStringList({QStringLiteral("Нет связи"), QStringLiteral("Нет связи"),
                                               QStringLiteral("Нет связи"), QStringLiteral("Нет связи")}));
    }

    void payoutIsNotRepeated_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("PayMoneyOut") << 0;
        QTest::newRow("DispenseHopperPattern") << 1;
    }

    void payoutIsNotRepeated()
    {
        QFETCH(int, kind);
        LogCapture log;
        line->queueSilence(1);
        line->queueReply(reply());
        CcTalk::DispenseHopperPattern pattern;
        pattern.addCount(1, 3);
        const CcTalk::PayMoneyOut pay(1500);
        const CcTalk::Request& req = kind == 0 ? static_cast<const CcTalk::Request&>(pay) : pattern;
        QVERIFY(!req.canBeSentAgain());
        QVERIFY_EXCEPTION_THROWN(device->exec(req), CcTalk::Exception);
        QCOMPARE(line->writes.size(), 1);
        QCOMPARE(line->writes.first(), kind == 0 ? request(125, hex("dc050000")) : request(85, hex("0103")));
        QCOMPARE(device->pauses, QList<int>{200});
        QCOMPARE(errorLines(log), QStringList{QStringLiteral("Нет связи")});
        QCOMPARE(line->scriptLeft(), 1);
    }

    // A checksum-correct answer of another data length than the request expects is a
    // spoilt answer: one warning, one "Нет связи", and the request goes out again.
    void wrongLengthIsRetried_data()
    {
        testsupport::columns<int, QByteArray, QByteArray, QString>("command", "bad", "good", "warning");
        const QString prefix = QStringLiteral("Ответ неверной длины на команду ");
        QTest::newRow("hopper balance, count byte missing")
            << 0 << hex("5255313030412c") << hex("5255313030412c01")
            << prefix + QStringLiteral("reqHopperBalance (119): байт данных: 7, ожидалось: 8");
        QTest::newRow("hopper balance, empty")
            << 0 << QByteArray() << hex("5255313030412c01")
            << prefix + QStringLiteral("reqHopperBalance (119): байт данных: 0, ожидалось: 8");
        QTest::newRow("coins in, last position missing")
            << 1 << QByteArray(31, '\x01') << QByteArray(32, '\x01')
            << prefix + QStringLiteral("reqCoinsInByType (82): байт данных: 31, ожидалось: 32");
        QTest::newRow("audit counter, a byte too many")
            << 2 << hex("0100000000") << hex("01000000")
            << prefix + QStringLiteral("reqAuditCounter (86): байт данных: 5, ожидалось: 4");
        QTest::newRow("ACK with data")
            << 3 << hex("05") << QByteArray()
            << prefix + QStringLiteral("simplePoll (254): байт данных: 1, ожидалось: 0");
        QTest::newRow("variables, one byte")
            << 4 << hex("08") << hex("0805")
            << prefix + QStringLiteral("reqVarSet (247): байт данных: 1, ожидалось: не менее 2");
        QTest::newRow("model, empty")
            << 5 << QByteArray() << QByteArray("BCR")
            << prefix + QStringLiteral("reqProductCode (244): байт данных: 0, ожидалось: не менее 1");
        QTest::newRow("hopper capacity, one byte")
            << 6 << hex("e8") << hex("e803")
            << prefix + QStringLiteral("reqControllerManifest (84): байт данных: 1, ожидалось: 2");
    }

    void wrongLengthIsRetried()
    {
        QFETCH(int, command);
        QFETCH(QByteArray, bad);
        QFETCH(QByteArray, good);
        QFETCH(QString, warning);
        const CcTalk::ReqHopperBalance balance(3);
        const CcTalk::ReqCoinsInByType coinsIn;
        const CcTalk::ReqAuditCounter counter(80, 1);
        const CcTalk::SimplePoll poll;
        const CcTalk::ReqVarSet variables;
        const CcTalk::ReqProductCode model;
        const CcTalk::ReqUnitInfo capacity(CcTalk::ReqUnitInfo::Unit(3 + 2), CcTalk::ReqUnitInfo::Capacity);
        const QList<const CcTalk::Request*> requests{&balance,   &coinsIn, &counter, &poll,
                                                     &variables, &model,   &capacity};
        const CcTalk::Request& req = *requests.at(command);
        LogCapture log;
        line->queueReply(reply(bad));
        line->queueReply(reply(good));
        const CcTalk::Response r = device->exec(req);
        QCOMPARE(QByteArray(r), good);
        QCOMPARE(line->writes.size(), 2);
        QCOMPARE(line->writes.at(1), line->writes.at(0));
        QCOMPARE(device->pauses, QList<int>{200});
        QCOMPARE(log.texts(QStringLiteral("WARN")), QStringList{warning});
        QCOMPARE(errorLines(log), QStringList{QStringLiteral("Нет связи")});
    }

    // The whole log of such an exchange: the bytes of the short answer, then the warning, then
    // the lost-answer line, then the second attempt.
    void wrongLengthLogInOrder()
    {
        LogCapture log;
        line->setEcho(false);
        line->queueReply(reply(hex("0102")));
        line->queueReply(reply(hex("010203")));
        device->exec(CcTalk::ReqSerialNumber());
        QCOMPARE(
            log.formatted(),
            QStringList({QStringLiteral("DEBUG Выполнение команды reqSerialNumber (242)"),
                         QStringLiteral("TRACE Отправка: 37 00 01 F2 D6"),
                         QStringLiteral("TRACE Получено: 01 02 37 00 01 02 C3"),
                         QStringLiteral("WARN Ответ неверной длины на команду reqSerialNumber (242): байт "
                                        "данных: 2, ожидалось: 3"),
                         QStringLiteral("ERROR Нет связи"), QStringLiteral("TRACE Отправка: 37 00 01 F2 D6"),
                         QStringLiteral("TRACE Получено: 01 03 37 00 01 02 03 BF")}));
    }

    // A payout or purge command is never sent twice, whatever was wrong with its answer.
    void wrongLengthOfPayoutIsNotRepeated_data()
    {
        testsupport::columns<int, QByteArray, QString>("command", "sent", "warning");
        const QString prefix = QStringLiteral("Ответ неверной длины на команду ");
        QTest::newRow("PayMoneyOut") << 0 << request(125, hex("dc050000"))
                                     << prefix +
                                            QStringLiteral("payMoneyOut (125): байт данных: 1, ожидалось: 0");
        QTest::newRow("DispenseHopperPattern")
            << 1 << request(85, hex("0103"))
            << prefix + QStringLiteral("dispenseHopperPattern (85): байт данных: 1, ожидалось: 0");
        QTest::newRow("PurgeHopper") << 2 << request(121, hex("0200"))
                                     << prefix +
                                            QStringLiteral("purgeHopper (121): байт данных: 1, ожидалось: 0");
    }

    void wrongLengthOfPayoutIsNotRepeated()
    {
        QFETCH(int, command);
        QFETCH(QByteArray, sent);
        QFETCH(QString, warning);
        const CcTalk::PayMoneyOut pay(1500);
        CcTalk::DispenseHopperPattern pattern;
        pattern.addCount(1, 3);
        const CcTalk::PurgeHopper purge(2, 0);
        const QList<const CcTalk::Request*> requests{&pay, &pattern, &purge};
        LogCapture log;
        line->queueReply(reply(hex("00")));
        line->queueReply(reply());
        QCOMPARE(thrownText<CcTalk::Exception>([&] { device->exec(*requests.at(command)); }),
                 QStringLiteral("Нет связи"));
        QCOMPARE(line->writes, QList<QByteArray>{sent});
        QCOMPARE(device->pauses, QList<int>{200});
        QCOMPARE(log.texts(QStringLiteral("WARN")), QStringList{warning});
        QCOMPARE(errorLines(log), QStringList{QStringLiteral("Нет связи")});
        QCOMPARE(line->scriptLeft(), 1);
    }

    // Where the device may send more than the driver reads, a longer answer is taken as it is.
    void longerAnswerToMinimumIsTaken_data()
    {
        testsupport::columns<int, QByteArray>("command", "data");
        QTest::newRow("variables, four") << 0 << hex("08050102");
        QTest::newRow("variables, exactly two") << 0 << hex("0805");
        QTest::newRow("model, long text") << 1 << QByteArray("BCR-6-HOPPER");
        QTest::newRow("model, one character") << 1 << QByteArray("B");
        QTest::newRow("hopper enabled, two bytes") << 2 << hex("0100");
    }

    void longerAnswerToMinimumIsTaken()
    {
        QFETCH(int, command);
        QFETCH(QByteArray, data);
        const CcTalk::ReqVarSet variables;
        const CcTalk::ReqProductCode model;
        const CcTalk::ReqUnitInfo enabled(CcTalk::ReqUnitInfo::Unit(1 + 2), CcTalk::ReqUnitInfo::Enabled);
        const QList<const CcTalk::Request*> requests{&variables, &model, &enabled};
        LogCapture log;
        line->queueReply(reply(data));
        QCOMPARE(QByteArray(device->exec(*requests.at(command))), data);
        QCOMPARE(line->writes.size(), 1);
        QVERIFY(device->pauses.isEmpty());
        QVERIFY(log.texts(QStringLiteral("WARN")).isEmpty());
        QVERIFY(errorLines(log).isEmpty());
    }

    void wrongLengthFiveTimesIsNoLink()
    {
        LogCapture log;
        for (int i = 0; i < 5; ++i)
            line->queueReply(reply(hex("5255313030")));
        line->queueReply(reply(hex("5255313030412c01")));
        QCOMPARE(thrownText<CcTalk::Exception>([&] { device->exec(CcTalk::ReqHopperBalance(3)); }),
                 QStringLiteral("Нет связи"));
        QCOMPARE(line->writes, repeated(request(119, hex("03")), 5));
        QCOMPARE(device->pauses, repeated(200, 5));
        QCOMPARE(
            log.texts(QStringLiteral("WARN")),
            QStringList(repeated(QStringLiteral("Ответ неверной длины на команду reqHopperBalance (119): "
                                                "байт данных: 5, ожидалось: 8"),
                                 5)));
        QCOMPARE(errorLines(log), QStringList(repeated(QStringLiteral("Нет связи"), 5)));
        QCOMPARE(line->scriptLeft(), 1);
    }

    // NAK and BUSY carry no data whatever the request expects, and keep their own handling.
    void nakAndBusyAreNotLengthFaults_data()
    {
        testsupport::columns<int>("command");
        QTest::newRow("hopper balance") << 0;
        QTest::newRow("coins in") << 1;
        QTest::newRow("variables") << 2;
    }

    void nakAndBusyAreNotLengthFaults()
    {
        QFETCH(int, command);
        const CcTalk::ReqHopperBalance balance(3);
        const CcTalk::ReqCoinsInByType coinsIn;
        const CcTalk::ReqVarSet variables;
        const QList<const CcTalk::Request*> requests{&balance, &coinsIn, &variables};
        const QList<QByteArray> answers{hex("5255313030412c01"), QByteArray(32, '\x02'), hex("0805")};
        LogCapture log;
        line->queueReply(testsupport::busy());
        line->queueReply(reply(answers.at(command)));
        QCOMPARE(QByteArray(device->exec(*requests.at(command))), answers.at(command));
        QCOMPARE(device->pauses, QList<int>{1000});
        line->queueReply(testsupport::nak());
        line->queueReply(reply(answers.at(command)));
        QCOMPARE(thrownText<CcTalk::NakException>([&] { device->exec(*requests.at(command)); }),
                 QStringLiteral("Ошибка выполнения команды"));
        QCOMPARE(line->writes.size(), 3);
        QCOMPARE(device->pauses, QList<int>{1000});
        QVERIFY(log.texts(QStringLiteral("WARN")).isEmpty());
        QCOMPARE(errorLines(log), QStringList({QStringLiteral("Устройство занято"),
                                               QStringLiteral("Ошибка выполнения команды")}));
    }

    void nakIsNeverRepeated()
    {
        LogCapture log;
        line->queueReply(testsupport::nak());
        line->queueReply(reply());
        QCOMPARE(thrownText<CcTalk::NakException>([&] { device->exec(CcTalk::ModHopperBalance(3, 1000)); }),
                 QStringLiteral("Ошибка выполнения команды"));
        QCOMPARE(line->writes, QList<QByteArray>{request(120, hex("03e803"))});
        QVERIFY(device->pauses.isEmpty());
        QCOMPARE(device->getBusyRetries(), 60);
        QCOMPARE(log.formatted(),
                 QStringList({
                     QStringLiteral("DEBUG Выполнение команды modHopperBalance (120)"),
                     QStringLiteral("TRACE Отправка: 37 03 01 78 03 E8 03 5F"),
                     QStringLiteral("TRACE Получено: 37 03 01 78 03 E8 03 5F 01 00 37 05 C3"),
                     QStringLiteral("ERROR Ошибка выполнения команды"),
                 }));
    }

    void nakOfPayoutIsCaughtAsBaseException()
    {
        line->queueReply(testsupport::nak());
        bool caught = false;
        try {
            device->exec(CcTalk::PayMoneyOut(100));
        } catch (const CcTalk::Exception& e) {
            caught = dynamic_cast<const CcTalk::NakException*>(&e) != nullptr;
        }
        QVERIFY(caught);
        QVERIFY(device->pauses.isEmpty());
    }

    void busyThenAnswer()
    {
        LogCapture log;
        line->queueReply(testsupport::busy());
        line->queueReply(reply(hex("77")));
        const CcTalk::Response r = device->exec(MarkedPoll());
        QCOMPARE(QByteArray(r), hex("77"));
        QCOMPARE(line->writes.size(), 2);
        QCOMPARE(line->discards, 2);
        QCOMPARE(device->pauses, QList<int>{1000});
        QCOMPARE(device->getBusyRetries(), 60);
        QCOMPARE(errorLines(log), QStringList{QStringLiteral("Устройство занято")});
    }

    void busyDoesNotUseAttempts()
    {
        // Four lost answers and ten BUSY answers in one call: the attempt budget only
        // counts the lost ones.
        line->queueSilence(4);
        for (int i = 0; i < 10; ++i)
            line->queueReply(testsupport::busy());
        line->queueReply(reply());
        device->exec(CcTalk::SimplePoll());
        QCOMPARE(line->writes.size(), 15);
        QCOMPARE(device->pauses, repeated(200, 4) + repeated(1000, 10));
    }

    void busyOfPayoutIsWaitedOut()
    {
        line->queueReply(testsupport::busy());
        line->queueReply(reply());
        device->exec(CcTalk::PayMoneyOut(1500));
        QCOMPARE(line->writes.size(), 2);
        QCOMPARE(device->pauses, QList<int>{1000});
    }

    void sixtyBusyInOneExchangeAreWaitedOut()
    {
        for (int i = 0; i < 60; ++i)
            line->queueReply(testsupport::busy());
        line->queueReply(reply(hex("01")));
        QCOMPARE(QByteArray(device->exec(MarkedPoll())), hex("01"));
        QCOMPARE(line->writes.size(), 61);
        QCOMPARE(device->pauses, repeated(1000, 60));
    }

    void sixtyFirstBusyOfOneExchangeFails()
    {
        LogCapture log;
        for (int i = 0; i < 61; ++i)
            line->queueReply(testsupport::busy());
        line->queueReply(reply());
        QCOMPARE(thrownText<CcTalk::BusyException>([&] { device->exec(CcTalk::SimplePoll()); }),
                 QStringLiteral("Устройство занято"));
        QCOMPARE(line->writes.size(), 61);
        QCOMPARE(device->pauses, repeated(1000, 60));
        QCOMPARE(errorLines(log), QStringList(repeated(QStringLiteral("Устройство занято"), 61)));

        // The next exchange has its whole allowance again.
        device->pauses.clear();
        QCOMPARE(QByteArray(device->exec(CcTalk::SimplePoll())), QByteArray());
        QCOMPARE(line->writes.size(), 62);
        QVERIFY(device->pauses.isEmpty());
    }

    // A long-lived object keeps its patience: hundreds of BUSY answers spread over its
    // life never fail an exchange that sees fewer than 61 of them.
    void busyAllowanceIsPerExchange()
    {
        for (int call = 0; call < 10; ++call) {
            for (int i = 0; i < 45; ++i)
                line->queueReply(testsupport::busy());
            line->queueReply(reply(hex("aa")));
            QCOMPARE(QByteArray(device->exec(MarkedPoll())), hex("aa"));
        }
        QCOMPARE(device->pauses, repeated(1000, 450));
        QCOMPARE(line->writes.size(), 460);
        QCOMPARE(device->getBusyRetries(), 60);
    }

    void allowanceBelongsToNoOtherObject()
    {
        TestDevice other;
        other.setAddress(55);
        other.setSerial(line);
        for (int i = 0; i < 61; ++i)
            line->queueReply(testsupport::busy());
        QVERIFY_EXCEPTION_THROWN(other.exec(CcTalk::SimplePoll()), CcTalk::BusyException);
        line->queueReply(testsupport::busy());
        line->queueReply(reply());
        device->exec(CcTalk::SimplePoll());
        QCOMPARE(device->pauses, QList<int>{1000});
    }

    // Traffic between other stations on the bus is not an answer: 02 02 03 00 0A 0B E4
    // is a correct frame from address 3 to address 2.
    void foreignFrameBeforeAnswerIsSkipped()
    {
        LogCapture log;
        const QByteArray foreign = testsupport::frame(2, 3, 0, hex("0a0b"));
        QCOMPARE(foreign, hex("020203000a0be4"));
        line->queueReply(foreign + reply(hex("5a")));
        QCOMPARE(QByteArray(device->exec(MarkedPoll())), hex("5a"));
        QCOMPARE(line->writes.size(), 1);
        QCOMPARE(log.texts(QStringLiteral("WARN")),
                 QStringList{QStringLiteral("Отброшено чужих кадров: 1, байт вне кадров: 0")});
    }

    void frameToTheHostFromAnotherDeviceIsSkipped()
    {
        LogCapture log;
        line->queueReply(testsupport::frame(1, 3, 0, hex("99")) + reply(hex("01")));
        QCOMPARE(QByteArray(device->exec(MarkedPoll())), hex("01"));
        QCOMPARE(log.texts(QStringLiteral("WARN")),
                 QStringList{QStringLiteral("Отброшено чужих кадров: 1, байт вне кадров: 0")});
    }

    // Only foreign frames on the line: nothing completes, the exchange is tried again
    // and the answer of the second attempt is taken.
    void onlyForeignFramesIsLostAnswer()
    {
        LogCapture log;
        line->queueReply(testsupport::frame(2, 3, 0, hex("01")) + testsupport::frame(1, 56, 0));
        line->queueReply(reply(hex("02")));
        QCOMPARE(QByteArray(device->exec(MarkedPoll())), hex("02"));
        QCOMPARE(line->writes.size(), 2);
        QCOMPARE(device->pauses, QList<int>{200});
        QCOMPARE(log.texts(QStringLiteral("WARN")),
                 QStringList{QStringLiteral("Отброшено чужих кадров: 2, байт вне кадров: 0")});
        QCOMPARE(errorLines(log), QStringList{QStringLiteral("Нет связи")});
    }

    // 130 data bytes whose checksum byte is wrong: the frame is dropped byte by byte,
    // however its length makes the sum look.
    void longFrameWithBadChecksumIsNoAnswer()
    {
        QByteArray bad = testsupport::frame(1, 55, 0, QByteArray(130, '\x11'));
        bad[bad.size() - 1] = char(bad.at(bad.size() - 1) + 1);
        line->queueChunks({bad});
        line->queueReply(reply(hex("03")));
        QCOMPARE(QByteArray(device->exec(MarkedPoll())), hex("03"));
        QCOMPARE(line->writes.size(), 2);
    }

    void garbageIsCountedOncePerAttempt()
    {
        LogCapture log;
        line->queueChunks({hex("00"), hex("00"), reply(hex("04"))});
        QCOMPARE(QByteArray(device->exec(MarkedPoll())), hex("04"));
        QCOMPARE(log.texts(QStringLiteral("WARN")),
                 QStringList{QStringLiteral("Отброшено чужих кадров: 0, байт вне кадров: 2")});
    }

    void cleanLineLogsNoWarning()
    {
        LogCapture log;
        line->queueReply(reply(hex("05")));
        device->exec(MarkedPoll());
        QVERIFY(log.texts(QStringLiteral("WARN")).isEmpty());
    }

    void purgeIsNeverRepeated()
    {
        line->queueSilence(1);
        line->queueReply(reply());
        QVERIFY_EXCEPTION_THROWN(device->exec(CcTalk::PurgeHopper(2, 0)), CcTalk::Exception);
        QCOMPARE(line->writes, QList<QByteArray>{request(121, hex("0200"))});
        QCOMPARE(device->pauses, QList<int>{200});
    }

    void deviceNameInFront()
    {
        LogCapture log;
        device->setName(QStringLiteral("Ресайклер"));
        line->queueSilence(5);
        const auto e = thrown<CcTalk::Exception>([&] { device->exec(CcTalk::SimplePoll()); });
        QVERIFY(e);
        QCOMPARE(QByteArray(e->what()), QStringLiteral("Ресайклер, Нет связи").toUtf8());
        QCOMPARE(e->message(), QStringLiteral("Нет связи"));
        QCOMPARE(e->deviceName(), QStringLiteral("Ресайклер"));
        const QStringList lines = log.formatted();
        QCOMPARE(lines.at(0), QStringLiteral("DEBUG Ресайклер, Выполнение команды simplePoll (254)"));
        QCOMPARE(lines.at(1), QStringLiteral("TRACE Отправка: 37 00 01 FE CA"));
        QCOMPARE(lines.at(2), QStringLiteral("TRACE Получено: 37 00 01 FE CA"));
        QCOMPARE(lines.at(3), QStringLiteral("ERROR Ресайклер, Нет связи"));
        QCOMPARE(log.lines().at(3).raw, QStringLiteral("Ресайклер, Нет связи").toUtf8());
    }

    void deviceNameOnNakAndBusy()
    {
        device->setName(QStringLiteral("BCR"));
        line->queueReply(testsupport::nak());
        QCOMPARE(thrownText<CcTalk::NakException>([&] { device->exec(CcTalk::SimplePoll()); }),
                 QStringLiteral("BCR, Ошибка выполнения команды"));
        TestDevice exhausted;
        exhausted.setName(QStringLiteral("BCR"));
        exhausted.setAddress(55);
        exhausted.setSerial(line);
        for (int i = 0; i < 61; ++i)
            line->queueReply(testsupport::busy());
        QCOMPARE(thrownText<CcTalk::BusyException>([&] { exhausted.exec(CcTalk::SimplePoll()); }),
                 QStringLiteral("BCR, Устройство занято"));
    }

    void noTraceLinesBelowTrace()
    {
        LogCapture log;
        logging::logger("cctalk")->setLevel(log4cxx::Level::getDebug());
        line->queueReply(reply());
        device->exec(CcTalk::SimplePoll());
        logging::logger("cctalk")->setLevel(log4cxx::LevelPtr());
        QCOMPARE(log.formatted(), QStringList{QStringLiteral("DEBUG Выполнение команды simplePoll (254)")});
    }

    void ownLogger()
    {
        LogCapture log;
        device->setLogger(logging::logger("cpibcr"));
        line->queueReply(reply());
        device->exec(CcTalk::SimplePoll());
        QCOMPARE(log.lines().size(), 3);
        for (const testsupport::LogLine& l : log.lines())
            QCOMPARE(l.logger, QStringLiteral("cpibcr"));
    }

    // A line that never stops sending garbage: each attempt gives up after 1024 bytes.
    void babblingLineEndsAsLostAnswer()
    {
        LogCapture log;
        line->queueChunks(garbageChunks(20, 100));
        line->queueReply(reply(hex("33")));
        const CcTalk::Response r = device->exec(MarkedPoll());
        checkSecondAttemptTaken(r, hex("33"), line->writes.size(), log);
        // Echo (5 bytes) and 11 chunks of 100 make 1105 > 1024; the second attempt
        // reads echo and answer.
        QCOMPARE(line->reads, 12 + 2);
        const QStringList traces = log.texts(QStringLiteral("TRACE"));
        QCOMPARE(traces.at(0), sent(request(254)));
        QCOMPARE(traces.at(1), got(request(254) + QByteArray(1100, '\xff')));
    }

    void endlessBabbleFailsWithinBudget()
    {
        line->setResponder([](const QByteArray&) { return garbageChunks(100, 64); });
        QVERIFY_EXCEPTION_THROWN(device->exec(CcTalk::SimplePoll()), CcTalk::Exception);
        QCOMPARE(line->writes.size(), 5);
        QCOMPARE(device->pauses, repeated(200, 5));
        // 5 + 16 * 64 = 1029 > 1024: 17 reads per attempt.
        QCOMPARE(line->reads, 5 * 17);
    }

    void exactly1024BytesStillWaits()
    {
        // Echo 5 bytes and 1019 bytes of garbage: 1024 in all, not over the bound; the
        // answer that follows is taken.
        line->queueChunks({QByteArray(1019, '\xff'), reply(hex("4444"))});
        const CcTalk::Response r = device->exec(MarkedPoll());
        QCOMPARE(QByteArray(r), hex("4444"));
        QCOMPARE(line->writes.size(), 1);
    }

    void answerInsideLongChunkIsTaken()
    {
        // The bound applies only when the bytes read have not formed an answer.
        line->queueChunks({QByteArray(2000, '\xff') + reply(hex("4545"))});
        const CcTalk::Response r = device->exec(MarkedPoll());
        QCOMPARE(QByteArray(r), hex("4545"));
        QCOMPARE(line->writes.size(), 1);
    }

    void slowLineEndsAsLostAnswer()
    {
        LogCapture log;
        SlowLine slow;
        device->setSerial(&slow);
        device->setClock([&slow] { return slow.now; });
        // One garbage byte per second keeps the line busy without ever forming a frame.
        QList<QByteArray> trickle = garbageChunks(100, 1);
        slow.queueChunks(trickle);
        slow.queueReply(reply(hex("55")));
        const CcTalk::Response r = device->exec(MarkedPoll());
        checkSecondAttemptTaken(r, hex("55"), slow.writes.size(), log);
        // Waits at 1000 .. 5000 ms are within the bound, the check after the fifth wait
        // finds 5000 ms (not more), the sixth wait brings 6000 ms and ends the attempt.
        QCOMPARE(slow.waitTimeouts.size(), 6 + 2);
        QCOMPARE(log.texts(QStringLiteral("TRACE")).at(1), got(request(254) + QByteArray(5, '\xff')));
        device->setSerial(line);
    }

    void slowLineFailsWithinBudget()
    {
        SlowLine slow;
        slow.stepMsecs = 2500;
        device->setSerial(&slow);
        device->setClock([&slow] { return slow.now; });
        slow.setResponder([](const QByteArray&) { return garbageChunks(50, 1); });
        QVERIFY_EXCEPTION_THROWN(device->exec(CcTalk::SimplePoll()), CcTalk::Exception);
        QCOMPARE(slow.writes.size(), 5);
        QCOMPARE(device->pauses, repeated(200, 5));
        // 2500, 5000 still within; 7500 ends each attempt: 3 waits per attempt.
        QCOMPARE(slow.waitTimeouts, repeated(1000, 15));
        device->setSerial(line);
    }

    void emptyReadIsLostAnswer()
    {
        LogCapture log;
        EmptyReadLine empty;
        device->setSerial(&empty);
        empty.queueSilence(1);
        empty.queueReply(reply(hex("66")));
        const CcTalk::Response r = device->exec(MarkedPoll());
        checkSecondAttemptTaken(r, hex("66"), empty.writes.size(), log);
        device->setSerial(line);
    }

    void noSerialPortIsLostAnswer()
    {
        TestDevice lonely;
        QVERIFY_EXCEPTION_THROWN(lonely.exec(CcTalk::SimplePoll()), CcTalk::Exception);
        QCOMPARE(lonely.pauses, repeated(200, 5));
    }

    void connectPollsOnce()
    {
        LogCapture log;
        line->queueReply(reply());
        device->connect();
        QCOMPARE(line->writes, QList<QByteArray>{request(254)});
        QCOMPARE(log.texts(QStringLiteral("INFO")),
                 QStringList{QStringLiteral("Проверка соединения с устройством")});
    }

    void connectPassesFailures()
    {
        line->queueReply(testsupport::nak());
        QVERIFY_EXCEPTION_THROWN(device->connect(), CcTalk::NakException);
    }

    void checkStateConnects()
    {
        LogCapture log;
        device->setName(QStringLiteral("BCR"));
        line->queueReply(reply());
        device->checkState();
        QCOMPARE(line->writes, QList<QByteArray>{request(254)});
        QCOMPARE(log.texts(QStringLiteral("INFO")),
                 QStringList({QStringLiteral("BCR, Проверка состояния устройства"),
                              QStringLiteral("BCR, Проверка соединения с устройством")}));
    }

    void commonInitLogsIdentity()
    {
        LogCapture log;
        line->queueReply(reply());
        line->queueReply(reply(QByteArray("Payout")));
        line->queueReply(reply(QByteArray("CPI")));
        line->queueReply(reply(QByteArray("BCR")));
        line->queueReply(reply(QStringLiteral("сб-7").toUtf8()));
        line->queueReply(reply(hex("393000")));
        line->queueReply(reply(QByteArray("1.2.3")));
        device->commonInit();
        QCOMPARE(line->writes, QList<QByteArray>({request(254), request(245), request(246), request(244),
                                                  request(192), request(242), request(241)}));
        QCOMPARE(log.texts(QStringLiteral("INFO")),
                 cctalktest::identityLog(QStringLiteral("сб-7"), QStringLiteral("1.2.3")));
    }

    void commonInitWithName()
    {
        LogCapture log;
        device->setName(QStringLiteral("BCR"));
        device->setAddress(2);
        line->setResponder([](const QByteArray& written) {
            const quint8 header = quint8(written.at(3));
            const QByteArray data = header == 254 ? QByteArray() : header == 242 ? hex("410000") : hex("41");
            return QList<QByteArray>{testsupport::frame(1, 2, 0, data)};
        });
        device->commonInit();
        const QStringList info = log.texts(QStringLiteral("INFO"));
        QCOMPARE(info.first(), QStringLiteral("BCR, адрес на шине ccTalk - 2"));
        QCOMPARE(info.at(2), QStringLiteral("BCR, тип устройства - A"));
        QCOMPARE(info.at(6), QStringLiteral("BCR, серийный номер - 65"));
    }

    // commonInit with one of its seven answers given: how that answer is shown. Texts end at
    // the first zero byte; the serial number is three bytes, low byte first.
    void commonInitShowsAnswer_data()
    {
        testsupport::columns<int, QByteArray, QString>("answer", "data", "shown");
        QTest::newRow("model, zero inside") << 3 << hex("4243520058595a") << QStringLiteral("модель - BCR");
        QTest::newRow("model, zero first") << 3 << hex("00414243") << QStringLiteral("модель - ");
        QTest::newRow("model, zero last") << 3 << hex("41424300") << QStringLiteral("модель - ABC");
        QTest::newRow("serial 39 30 00") << 5 << hex("393000") << QStringLiteral("серийный номер - 12345");
        QTest::newRow("serial max") << 5 << hex("ffffff") << QStringLiteral("серийный номер - 16777215");
    }

    void commonInitShowsAnswer()
    {
        QFETCH(int, answer);
        QFETCH(QByteArray, data);
        QFETCH(QString, shown);
        LogCapture log;
        QList<QByteArray> answers{QByteArray(),    QByteArray("Payout"), QByteArray("CPI"), QByteArray("BCR"),
                                  QByteArray("B"), hex("393000"),        QByteArray("2.1")};
        answers[answer] = data;
        for (const QByteArray& a : answers)
            line->queueReply(reply(a));
        device->commonInit();
        // The line with the bus address comes first.
        QCOMPARE(log.texts(QStringLiteral("INFO")).at(answer + 1), shown);
    }

    // An answer of the wrong length is asked again, and the line shows the second answer:
    // a serial number of too few bytes is never shown with zeros for the bytes missing.
    void commonInitAsksAgainAfterWrongLength_data()
    {
        testsupport::columns<int, QByteArray, QByteArray, QString>("answer", "bad", "good", "shown");
        QTest::newRow("model, empty")
            << 3 << QByteArray() << QByteArray("BCR") << QStringLiteral("модель - BCR");
        QTest::newRow("serial short")
            << 5 << hex("0201") << hex("393000") << QStringLiteral("серийный номер - 12345");
        QTest::newRow("serial empty")
            << 5 << QByteArray() << hex("393000") << QStringLiteral("серийный номер - 12345");
        QTest::newRow("serial, a fourth byte")
            << 5 << hex("01000005") << hex("010000") << QStringLiteral("серийный номер - 1");
    }

    void commonInitAsksAgainAfterWrongLength()
    {
        QFETCH(int, answer);
        QFETCH(QByteArray, bad);
        QFETCH(QByteArray, good);
        QFETCH(QString, shown);
        LogCapture log;
        QList<QByteArray> answers{QByteArray(),    QByteArray("Payout"), QByteArray("CPI"), QByteArray("BCR"),
                                  QByteArray("B"), hex("393000"),        QByteArray("2.1")};
        answers[answer] = good;
        answers.insert(answer, bad);
        for (const QByteArray& a : answers)
            line->queueReply(reply(a));
        device->commonInit();
        QCOMPARE(line->writes.size(), 8);
        QCOMPARE(line->writes.at(answer + 1), line->writes.at(answer));
        QCOMPARE(log.texts(QStringLiteral("INFO")).at(answer + 1), shown);
        QCOMPARE(log.texts(QStringLiteral("WARN")).size(), 1);
    }

    void commonInitStopsAtFailure()
    {
        LogCapture log;
        line->queueReply(reply());
        line->queueReply(reply(QByteArray("Payout")));
        line->queueReply(testsupport::nak());
        QVERIFY_EXCEPTION_THROWN(device->commonInit(), CcTalk::NakException);
        QCOMPARE(line->writes.size(), 3);
        QCOMPARE(log.texts(QStringLiteral("INFO")).size(), 3);
        QCOMPARE(log.texts(QStringLiteral("INFO")).last(), QStringLiteral("тип устройства - Payout"));
    }

    void helpersWrapWithName()
    {
        LogCapture log;
        QCOMPARE(device->wrapWithName(QStringLiteral("текст")), QStringLiteral("текст"));
        device->setName(QStringLiteral("Монетник"));
        QCOMPARE(device->wrapWithName(QStringLiteral("текст")), QStringLiteral("Монетник, текст"));
        device->logDebug(QStringLiteral("d"));
        device->logInfo(QStringLiteral("i"));
        device->logWarn(QStringLiteral("w"));
        device->logError(QStringLiteral("e"));
        QCOMPARE(log.formatted(),
                 QStringList({QStringLiteral("DEBUG Монетник, d"), QStringLiteral("INFO Монетник, i"),
                              QStringLiteral("WARN Монетник, w"), QStringLiteral("ERROR Монетник, e")}));
    }

    void throwErrorLogsAndThrows()
    {
        LogCapture log;
        device->setName(QStringLiteral("BCR"));
        const auto e = thrown<CcTalk::NakException>(
            [&] { device->throwError<CcTalk::NakException>(QStringLiteral("Отказ")); });
        QVERIFY(e);
        QCOMPARE(e->message(), QStringLiteral("Отказ"));
        QCOMPARE(e->deviceName(), QStringLiteral("BCR"));
        QCOMPARE(QByteArray(e->what()), QStringLiteral("BCR, Отказ").toUtf8());
        QCOMPARE(log.formatted(), QStringList{QStringLiteral("ERROR BCR, Отказ")});
    }
};

QTEST_GUILESS_MAIN(TestDevice_)
#include "tst_device.moc"
