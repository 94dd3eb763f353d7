#include "cctalk/commands.h"
#include "cctalk/device.h"
#include "host/serialport.h"
#include "support/frames.h"
#include "support/logcapture.h"
#include "support/ptyrig.h"
#include "testdevice.h"

#include <QtTest>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

using testsupport::hex;
using testsupport::reply;
using testsupport::request;

namespace {

// The far end of a pseudo-terminal playing the device: it hears each request frame,
// sends it back as the single-wire bus does, then the chunks the script gives, with
// a short gap between chunks.
class PtyResponder
{
public:
    using Script = std::function<QList<QByteArray>(const QByteArray& request)>;

    PtyResponder() : path(pty.path), master(pty.master) {}

    ~PtyResponder() { stop(); }

    void start(Script s, int gapMsecs = 2)
    {
        script = std::move(s);
        gap = gapMsecs;
        running = true;
        worker = std::thread([this] { run(); });
    }

    void stop()
    {
        running = false;
        if (worker.joinable())
            worker.join();
    }

    QList<QByteArray> heard() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return requests;
    }

private:
    testsupport::PtyPair pty;

public:
    const QString path;

private:
    void run()
    {
        QByteArray buffer;
        while (running) {
            pollfd p{master, POLLIN, 0};
            if (::poll(&p, 1, 5) <= 0)
                continue;
            char chunk[512];
            const ssize_t n = ::read(master, chunk, sizeof chunk);
            if (n <= 0)
                continue;
            buffer.append(chunk, int(n));
            while (buffer.size() >= 5 && buffer.size() >= quint8(buffer.at(1)) + 5) {
                const QByteArray frame = buffer.left(quint8(buffer.at(1)) + 5);
                buffer.remove(0, frame.size());
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    requests.append(frame);
                }
                writeAll(frame);
                for (const QByteArray& piece : script(frame)) {
                    ::usleep(useconds_t(gap) * 1000);
                    writeAll(piece);
                }
            }
        }
    }

    void writeAll(const QByteArray& bytes)
    {
        int done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::write(master, bytes.constData() + done, size_t(bytes.size() - done));
            if (n <= 0)
                return;
            done += int(n);
        }
    }

    const int master;
    int gap = 2;
    Script script;
    std::atomic<bool> running{false};
    std::thread worker;
    mutable std::mutex mutex;
    QList<QByteArray> requests;
};

// The identity answers by request header: category, manufacturer, product, build, serial
// number 12345, firmware.
QByteArray identityAnswer(const QByteArray& req)
{
    static const QMap<quint8, QByteArray> answers{{245, QByteArray("Payout")}, {246, QByteArray("CPI")},
                                                  {244, QByteArray("BCR")},    {192, QByteArray("B")},
                                                  {242, hex("393000")},        {241, QByteArray("2.1")}};
    return answers.value(quint8(req.at(3)));
}

} // namespace

class TestDevicePty : public QObject
{
    Q_OBJECT
private slots:
    void simplePoll()
    {
        PtyResponder pty;
        QVERIFY(!pty.path.isEmpty());
        pty.start([](const QByteArray&) { return QList<QByteArray>{reply()}; });
        hw::SerialPort port;
        QVERIFY2(port.open(pty.path), qPrintable(port.errorString()));
        QVERIFY(port.setBaudRate(QStringLiteral("115200")));
        cctalktest::TestDevice device;
        device.setAddress(55);
        device.setSerial(&port);
        testsupport::LogCapture log;
        const CcTalk::Response r = device.exec(CcTalk::SimplePoll());
        QVERIFY(r.isValid());
        QCOMPARE(int(r.getSource()), 55);
        QCOMPARE(pty.heard(), QList<QByteArray>{hex("370001feca")});
        QCOMPARE(log.texts(QStringLiteral("TRACE")),
                 QStringList({QStringLiteral("Отправка: 37 00 01 FE CA"),
                              QStringLiteral("Получено: 37 00 01 FE CA 01 00 37 00 C8")}));
        QVERIFY(device.pauses.isEmpty());
    }

    void answerInPieces()
    {
        PtyResponder pty;
        const QByteArray answer = reply(hex("5255303130412c01"));
        pty.start(
            [&answer](const QByteArray&) {
                return QList<QByteArray>{answer.left(2), answer.mid(2, 5), answer.mid(7)};
            },
            20);
        hw::SerialPort port;
        QVERIFY(port.open(pty.path));
        cctalktest::TestDevice device;
        device.setAddress(55);
        device.setSerial(&port);
        const CcTalk::ReqHopperBalanceResp r = device.exec(CcTalk::ReqHopperBalance(2));
        QCOMPARE(r.getDenom().getName(), QStringLiteral("RU010A"));
        QCOMPARE(r.getCount(), 300u);
        QCOMPARE(pty.heard(), QList<QByteArray>{request(119, hex("02"))});
    }

    void busyThenAnswer()
    {
        PtyResponder pty;
        std::atomic<int> calls{0};
        pty.start([&calls](const QByteArray&) {
            return QList<QByteArray>{calls++ == 0 ? testsupport::busy() : reply(hex("1005"))};
        });
        hw::SerialPort port;
        QVERIFY(port.open(pty.path));
        cctalktest::TestDevice device;
        device.setAddress(55);
        device.setSerial(&port);
        const CcTalk::Response r = device.exec(CcTalk::ReqVarSet());
        QCOMPARE(QByteArray(r), hex("1005"));
        QCOMPARE(device.pauses, QList<int>{1000});
        QCOMPARE(pty.heard().size(), 2);
    }

    void commonInit()
    {
        PtyResponder pty;
        pty.start([](const QByteArray& req) { return QList<QByteArray>{reply(identityAnswer(req))}; });
        hw::SerialPort port;
        QVERIFY(port.open(pty.path));
        cctalktest::TestDevice device;
        device.setAddress(55);
        device.setSerial(&port);
        testsupport::LogCapture log;
        device.commonInit();
        QCOMPARE(log.texts(QStringLiteral("INFO")),
                 cctalktest::identityLog(QStringLiteral("B"), QStringLiteral("2.1")));
        QCOMPARE(pty.heard().size(), 7);
    }
};

QTEST_GUILESS_MAIN(TestDevicePty)
#include "tst_devicepty.moc"
