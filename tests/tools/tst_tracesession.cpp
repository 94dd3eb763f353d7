// A session recorded at "the site" (the simulator with a lost answer, a BUSY, a NAK, a foreign
// frame and a hopper that jams midway through a payout) and replayed "in the lab" by
// cpibcr-sim --replay: the same commands give the same output and the same driver log lines; a
// different command is stopped at the request where it parts from the recording; a damaged trace
// is refused at its first bad line. The built cpibcr and cpibcr-sim run as separate processes.
#include "sim/simulator.h"
#include "support/toolprocess.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <unistd.h>

namespace {

using Result = testsupport::ProcessResult;
using testsupport::cLocale;

const int sessionTimeoutMs = 120000;

Result tool(const QStringList& args)
{
    return testsupport::runProgram(QStringLiteral(CPIBCR_TOOL), args, sessionTimeoutMs);
}

// The console log's lines without their time of day.
QStringList logLines(const QByteArray& err)
{
    static const QRegularExpression time(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d,\\d\\d\\d "));
    QStringList lines = QString::fromUtf8(err).split(QLatin1Char('\n'));
    for (QString& line : lines)
        line.remove(time);
    return lines;
}

// The two commands of the session, the first with the line recorded.
const QStringList payCommand{QStringLiteral("--log"), QStringLiteral("debug"),  QStringLiteral("pay"),
                             QStringLiteral("18"),    QStringLiteral("--mode"), QStringLiteral("minimum")};
const QStringList statusCommand{QStringLiteral("--log"), QStringLiteral("debug"), QStringLiteral("status")};

// cpibcr-sim --replay, running until it ends by itself.
struct ReplayProcess
{
    QProcess process;
    QByteArray out;

    bool start(const QStringList& args)
    {
        process.setProcessEnvironment(cLocale());
        process.start(QStringLiteral(CPIBCR_SIM_PROGRAM), args);
        if (!process.waitForStarted(10000))
            return false;
        QElapsedTimer clock;
        clock.start();
        while (!out.contains("replay: ")) {
            if (clock.elapsed() > 30000 || process.state() == QProcess::NotRunning)
                return false;
            process.waitForReadyRead(50);
            out += process.readAllStandardOutput();
        }
        return true;
    }
    int finish()
    {
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
            return -1;
        }
        out += process.readAllStandardOutput();
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }
};

} // namespace

class TestTraceSession : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void traceReadsTheSession();
    void replayWithTheSameCommands();
    void replayWithAnotherCommand();
    void damagedTraceIsRefused_data();
    void damagedTraceIsRefused();
    void traceFileThatCannotBeWritten();

private:
    QString link() const { return dir.filePath(QStringLiteral("ttyBCR")); }
    QString tracePath() const { return dir.filePath(QStringLiteral("site.trace")); }
    QJsonObject traceJson(bool summaryOnly);

    QTemporaryDir dir;
    Result recordedPay;
    Result recordedStatus;
};

QJsonObject TestTraceSession::traceJson(bool summaryOnly)
{
    QStringList args{QStringLiteral("--json"), QStringLiteral("trace"), tracePath()};
    if (summaryOnly)
        args << QStringLiteral("--summary");
    const Result r = tool(args);
    if (r.status != 0)
        return QJsonObject();
    return QJsonDocument::fromJson(r.out).object();
}

void TestTraceSession::initTestCase()
{
    QVERIFY(dir.isValid());
    QString error;
    sim::Config config = sim::Config::fromJsonFile(QStringLiteral(CPIBCR_TEST_DATA "/fast.json"), &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    // The site's recycler runs an hour behind, so the driver sets its clock in both sessions.
    config.clockOffsetSecs = -3600;
    sim::Simulator site(config);
    QVERIFY2(site.openPty(&error), qPrintable(error));
    QVERIFY(::symlink(site.portPath().toLocal8Bit().constData(), link().toLocal8Bit().constData()) == 0);

    // Connecting: the first poll answered BUSY behind a frame between two other stations, the
    // equipment category's answer lost once. Paying 10 + 5 + 2 + 1, hopper 3 (2.00) jams after
    // the first two coins.
    site.answerBusy(1);
    site.foreignFrameBeforeNext(1);
    site.dropAnswersTo(245, 1);
    site.jamHopper(3);
    recordedPay = tool(QStringList{QStringLiteral("--port"), link(), QStringLiteral("--trace"), tracePath()} +
                       payCommand);
    QCOMPARE(recordedPay.status, 1);
    QVERIFY2(recordedPay.err.endsWith(
                 QStringLiteral("Монетоприемник: Хоппер 3, заклинивание; выдано 15.00\n").toUtf8()),
             recordedPay.err.right(300).constData());
    QCOMPARE(site.hopperCount(1), 199);
    QCOMPARE(site.hopperCount(2), 249);
    QCOMPARE(site.hopperCount(3), 300);
    QCOMPARE(site.hopperCount(4), 400);

    // A second run appends its recording: its first poll is refused.
    site.nakNext(1);
    recordedStatus =
        tool(QStringList{QStringLiteral("--port"), link(), QStringLiteral("--trace"), tracePath()} +
             statusCommand);
    QCOMPARE(recordedStatus.status, 1);
    QVERIFY(
        recordedStatus.err.endsWith(QStringLiteral("Монетоприемник: Ошибка выполнения команды\n").toUtf8()));
    site.stop();
    QVERIFY(QFile::remove(link()));
}

void TestTraceSession::traceReadsTheSession()
{
    const QJsonObject summary = traceJson(true).value(QStringLiteral("summary")).toObject();
    QCOMPARE(summary.value(QStringLiteral("recordings")).toInt(), 2);
    QCOMPARE(summary.value(QStringLiteral("busy")).toInt(), 1);
    QCOMPARE(summary.value(QStringLiteral("nak")).toInt(), 1);
    QCOMPARE(summary.value(QStringLiteral("lost")).toInt(), 1);
    QCOMPARE(summary.value(QStringLiteral("foreignFrames")).toInt(), 1);
    QCOMPARE(summary.value(QStringLiteral("corruptFrames")).toInt(), 0);
    // The poll after BUSY and the equipment category after the lost answer.
    QCOMPARE(summary.value(QStringLiteral("repeats")).toInt(), 2);
    QVERIFY(summary.value(QStringLiteral("longestSilenceUs")).toDouble() >= 1000000);

    const Result text = tool({QStringLiteral("trace"), tracePath()});
    QCOMPARE(text.status, 0);
    const QString out = QString::fromUtf8(text.out);
    QVERIFY(
        out.startsWith(QStringLiteral("recording 1: cpibcr/1.0.0, port %1, 115200 baud, 8 data bits, parity "
                                      "none, 1 stop bit(s), flow control none, started ")
                           .arg(link())));
    QVERIFY(out.contains(QStringLiteral("\n#1  ")));
    QVERIFY(out.contains(QStringLiteral("1 -> 55  simplePoll (254)  data -  checksum ok\n"
                                        "    echo     37 00 01 FE CA\n"
                                        "    foreign  3 -> 2  answer (0)  data -  checksum ok\n"
                                        "    answer   55 -> 1  BUSY (6)  data -  checksum ok  latency ")));
    QVERIFY(out.contains(QStringLiteral("1 -> 55  reqEquipmentCategoryId (245)  data -  checksum ok\n"
                                        "    echo     37 00 01 F5 D3\n"
                                        "    lost     no answer\n")));
    QVERIFY(out.contains(
        QStringLiteral("1 -> 55  reqEquipmentCategoryId (245)  data -  checksum ok  (repeat)\n")));
    QVERIFY(
        out.contains(QStringLiteral("1 -> 55  dispenseHopperPattern (85)  data 01 01 02 01 03 01 04 01")));
    QVERIFY(out.contains(QStringLiteral("\nrecording 2: ")));
    QVERIFY(out.contains(QStringLiteral("    answer   55 -> 1  NAK (5)  data -  checksum ok  latency ")));
    QVERIFY(out.contains(QStringLiteral("\nsummary\n  recordings        2\n")));
}

void TestTraceSession::replayWithTheSameCommands()
{
    ReplayProcess replay;
    QVERIFY(replay.start({QStringLiteral("--replay"), tracePath(), QStringLiteral("--link"), link(),
                          QStringLiteral("--speed"), QStringLiteral("4")}));
    const Result pay = tool(QStringList{QStringLiteral("--port"), link()} + payCommand);
    const Result status = tool(QStringList{QStringLiteral("--port"), link()} + statusCommand);
    QCOMPARE(replay.finish(), 0);
    const int requests = int(traceJson(true)
                                 .value(QStringLiteral("summary"))
                                 .toObject()
                                 .value(QStringLiteral("exchanges"))
                                 .toDouble());
    QVERIFY(requests > 50);
    QVERIFY2(replay.out.contains(QStringLiteral("replay complete: all %1 requests of the recording matched\n")
                                     .arg(requests)
                                     .toUtf8()),
             replay.out.constData());

    QCOMPARE(pay.status, recordedPay.status);
    QCOMPARE(pay.out, recordedPay.out);
    QCOMPARE(logLines(pay.err), logLines(recordedPay.err));
    QCOMPARE(status.status, recordedStatus.status);
    QCOMPARE(status.out, recordedStatus.out);
    QCOMPARE(logLines(status.err), logLines(recordedStatus.err));
    // The log compared is the driver's at debug level: every command, retry and fault is in it.
    const QStringList lines = logLines(pay.err);
    QCOMPARE(lines.count(QStringLiteral("ERROR cpibcr - Устройство занято")), 1);
    QCOMPARE(lines.count(QStringLiteral("ERROR cpibcr - Нет связи")), 1);
    QVERIFY(lines.contains(QStringLiteral("INFO  cpibcr - Установка времени")));
}

void TestTraceSession::replayWithAnotherCommand()
{
    // The first dispense command of the recording is where paying 17 instead of 18 parts from it.
    int expected = 0;
    const QJsonArray exchanges = traceJson(false).value(QStringLiteral("exchanges")).toArray();
    for (const QJsonValue& v : exchanges) {
        const QJsonObject request = v.toObject().value(QStringLiteral("request")).toObject();
        if (request.value(QStringLiteral("header")).toInt() == 85) {
            expected = v.toObject().value(QStringLiteral("number")).toInt();
            break;
        }
    }
    QVERIFY(expected > 0);

    ReplayProcess replay;
    QVERIFY(replay.start({QStringLiteral("--replay"), tracePath(), QStringLiteral("--link"), link(),
                          QStringLiteral("--speed"), QStringLiteral("4")}));
    const Result pay = tool({QStringLiteral("--port"), link(), QStringLiteral("pay"), QStringLiteral("17"),
                             QStringLiteral("--mode"), QStringLiteral("minimum")});
    QCOMPARE(replay.finish(), 1);
    QCOMPARE(pay.status, 1);
    const QString err = QString::fromUtf8(replay.process.readAllStandardError());
    QVERIFY2(err.startsWith(QStringLiteral("cpibcr-sim: divergence at request %1 of %2 (recording 1, ")
                                .arg(expected)
                                .arg(exchanges.size())),
             qPrintable(err));
    QVERIFY2(err.contains(
                 QStringLiteral("\n  recorded: 1 -> 55  dispenseHopperPattern (85)  data 01 01 02 01 03 01 "
                                "04 01  checksum ok\n"
                                "  received: 1 -> 55  dispenseHopperPattern (85)  data 01 01 02 01 03 01  "
                                "checksum ok\n")),
             qPrintable(err));
}

void TestTraceSession::damagedTraceIsRefused_data()
{
    QTest::addColumn<QString>("damage");
    QTest::newRow("truncated") << "truncated";
    QTest::newRow("corrupt byte") << "corrupt";
}

void TestTraceSession::damagedTraceIsRefused()
{
    QFETCH(QString, damage);
    QFile original(tracePath());
    QVERIFY(original.open(QIODevice::ReadOnly));
    QList<QByteArray> lines = original.readAll().split('\n');
    const int bad = 40; // line numbers from 1
    QVERIFY(lines.size() > bad + 10);
    QByteArray text;
    QString message;
    if (damage == QLatin1String("truncated")) {
        lines = lines.mid(0, bad);
        lines.last().chop(4);
        text = lines.join('\n');
        message = QStringLiteral("line %1: cut off: the file ends inside the line").arg(bad);
    } else {
        QByteArray& line = lines[bad - 1];
        line.replace(line.size() - 2, 2, "ZZ");
        text = lines.join('\n');
        const int byteNumber = int(line.count(' ')) - 1;
        message = QStringLiteral("line %1: byte %2 is not a blank and two hexadecimal digits: \" ZZ\"")
                      .arg(bad)
                      .arg(byteNumber);
    }
    const QString damaged = dir.filePath(damage + QStringLiteral(".trace"));
    QFile out(damaged);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(text);
    out.close();

    const Result read = tool({QStringLiteral("trace"), damaged});
    QCOMPARE(read.status, 1);
    QVERIFY(read.out.isEmpty());
    QCOMPARE(QString::fromUtf8(read.err), QStringLiteral("cpibcr: %1: %2\n").arg(damaged, message));

    const Result replay = testsupport::runProgram(QStringLiteral(CPIBCR_SIM_PROGRAM),
                                                  {QStringLiteral("--replay"), damaged}, sessionTimeoutMs);
    QCOMPARE(replay.status, 2);
    QVERIFY(replay.out.isEmpty());
    QCOMPARE(QString::fromUtf8(replay.err), QStringLiteral("cpibcr-sim: %1: %2\n").arg(damaged, message));
}

void TestTraceSession::traceFileThatCannotBeWritten()
{
    QString error;
    sim::Simulator device(sim::Config::fromJsonFile(QStringLiteral(CPIBCR_TEST_DATA "/fast.json"), &error));
    QVERIFY2(device.openPty(&error), qPrintable(error));
    const QString file = dir.filePath(QStringLiteral("no-such-folder/site.trace"));
    const Result r = tool({QStringLiteral("--port"), device.portPath(), QStringLiteral("--trace"), file,
                           QStringLiteral("status")});
    QCOMPARE(r.status, 1);
    QCOMPARE(QString::fromUtf8(r.err),
             QStringLiteral("cpibcr: cannot write the trace %1: No such file or directory\n").arg(file));
    QVERIFY(r.out.isEmpty());
    // Refused before the driver said a word to the device.
    QCOMPARE(device.transactions().size(), 0);
}

QTEST_GUILESS_MAIN(TestTraceSession)
#include "tst_tracesession.moc"
