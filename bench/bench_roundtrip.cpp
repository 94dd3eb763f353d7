// Command round trip over a pseudo-terminal against the simulated recycler (echo on): a simple
// poll through CcTalk::Device::exec and hw::SerialPort, against a plain termios loop writing the
// same five bytes and reading the same ten back (echo and answer) from the same simulator.
// The argument is the simulator's answer delay in milliseconds: 2 is its default, 0 leaves
// only the cost of the two ends and the pseudo-terminal.
//
// The same poll through the driver's line recorder, off (the logger cpibcr.line at OFF) and on
// (a log4cxx rolling file appender with the shipped snippet's settings, into a temporary file);
// and the recorder alone, over a line that never waits, for its cost per chunk.

#include "cctalk/device.h"
#include "cctalk/identcommands.h"
#include "plugin/recordedline.h"
#include "support/ptyrig.h"

#include <benchmark/benchmark.h>
#include <log4cxx/helpers/properties.h>
#include <log4cxx/logmanager.h>
#include <log4cxx/propertyconfigurator.h>

#include <QTemporaryDir>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <memory>

namespace {

const QByteArray pollRequest = QByteArray::fromHex("370001feca");
const QByteArray pollAnswer = QByteArray::fromHex("01003700c8");

std::unique_ptr<testsupport::PtyRig> startRig(benchmark::State& state, testsupport::PtyRig::PortMode mode)
{
    sim::Config config = sim::Config::defaults();
    config.answerDelayMs = int(state.range(0));
    config.echo = true;
    auto rig = std::make_unique<testsupport::PtyRig>(config, mode);
    if (!rig->opened()) {
        state.SkipWithError(qPrintable(rig->error));
        return nullptr;
    }
    return rig;
}

// One simple poll through the bus device on `serial` per iteration.
void pollEachIteration(benchmark::State& state, hw::AbstractSerialDevice* serial)
{
    CcTalk::Device device;
    device.setAddress(55);
    device.setSerial(serial);
    try {
        for (auto _ : state) {
            const CcTalk::Response answer = device.exec(CcTalk::SimplePoll());
            if (!answer.isValid() || answer.getSource() != 55) {
                state.SkipWithError("the poll was not answered by the device");
                break;
            }
        }
    } catch (const std::exception& e) {
        state.SkipWithError(e.what());
    }
}

void BM_RoundTripDriver(benchmark::State& state)
{
    const auto rig = startRig(state, testsupport::PtyRig::OpenPort);
    if (!rig)
        return;
    pollEachIteration(state, &rig->port);
    state.SetItemsProcessed(state.iterations());
}

// cpibcr.line at TRACE into a rolling file in `dir`, or left without a level (the recorder then
// sets it OFF).
void configureRecording(bool on, const QTemporaryDir& dir)
{
    log4cxx::LogManager::resetConfiguration();
    if (!on)
        return;
    log4cxx::helpers::Properties p;
    const std::string file = dir.filePath(QStringLiteral("bench.trace")).toStdString();
    p.setProperty(LOG4CXX_STR("log4j.logger.cpibcr.line"), LOG4CXX_STR("TRACE, line"));
    p.setProperty(LOG4CXX_STR("log4j.additivity.cpibcr.line"), LOG4CXX_STR("false"));
    p.setProperty(LOG4CXX_STR("log4j.appender.line"), LOG4CXX_STR("org.apache.log4j.RollingFileAppender"));
    p.setProperty(LOG4CXX_STR("log4j.appender.line.File"), log4cxx::LogString(file.begin(), file.end()));
    p.setProperty(LOG4CXX_STR("log4j.appender.line.MaxFileSize"), LOG4CXX_STR("10MB"));
    p.setProperty(LOG4CXX_STR("log4j.appender.line.MaxBackupIndex"), LOG4CXX_STR("9"));
    p.setProperty(LOG4CXX_STR("log4j.appender.line.layout"), LOG4CXX_STR("org.apache.log4j.PatternLayout"));
    p.setProperty(LOG4CXX_STR("log4j.appender.line.layout.ConversionPattern"), LOG4CXX_STR("%m%n"));
    log4cxx::PropertyConfigurator::configure(p);
}

void BM_RoundTripRecorder(benchmark::State& state)
{
    const auto rig = startRig(state, testsupport::PtyRig::OpenPort);
    if (!rig)
        return;
    QTemporaryDir dir;
    configureRecording(state.range(1) != 0, dir);
    hw::RecordedLine line;
    line.setDevice(&rig->port, QStringLiteral("bench"));
    line.beginRecording();
    pollEachIteration(state, &line);
    if (line.stopped())
        state.SkipWithError("the recording stopped");
    log4cxx::LogManager::resetConfiguration();
    state.SetItemsProcessed(state.iterations());
}

// A line that takes every write and has the answer ready for every read, so that only the
// recorder's own cost is measured: one write and one read, two chunks, an iteration.
class ReadyLine : public hw::AbstractSerialDevice
{
public:
    bool setBaudRate(const QString&) override { return true; }
    bool setDataBits(const QString&) override { return true; }
    bool setParity(const QString&) override { return true; }
    bool setStopBits(const QString&) override { return true; }
    bool setFlowControl(const QString&) override { return true; }
    void discardInput() override {}
    void write(const QByteArray& data) override { written += data.size(); }
    bool waitForInput(int) override { return true; }
    QByteArray read(int) override { return pollAnswer; }

    qint64 written = 0;
};

void BM_RecorderChunks(benchmark::State& state)
{
    QTemporaryDir dir;
    configureRecording(state.range(0) != 0, dir);
    ReadyLine ready;
    hw::RecordedLine line;
    line.setDevice(&ready, QStringLiteral("bench"));
    line.beginRecording();
    for (auto _ : state) {
        line.write(pollRequest);
        benchmark::DoNotOptimize(line.read(0));
    }
    if (line.stopped())
        state.SkipWithError("the recording stopped");
    log4cxx::LogManager::resetConfiguration();
    state.SetItemsProcessed(state.iterations() * 2);
}

void BM_RoundTripPlain(benchmark::State& state)
{
    const auto rig = startRig(state, testsupport::PtyRig::LeavePortClosed);
    if (!rig)
        return;
    const int fd = ::open(rig->path().toLocal8Bit().constData(), O_RDWR | O_NOCTTY);
    if (fd < 0) {
        state.SkipWithError("cannot open the pseudo-terminal");
        return;
    }
    termios t{};
    tcgetattr(fd, &t);
    cfmakeraw(&t);
    cfsetspeed(&t, B115200);
    tcsetattr(fd, TCSANOW, &t);
    const QByteArray expected = pollRequest + pollAnswer;
    char buffer[64];
    for (auto _ : state) {
        if (::write(fd, pollRequest.constData(), size_t(pollRequest.size())) != pollRequest.size()) {
            state.SkipWithError("write failed");
            break;
        }
        QByteArray got;
        while (got.size() < expected.size()) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 1000) <= 0) {
                state.SkipWithError("no answer within a second");
                break;
            }
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n > 0)
                got.append(buffer, int(n));
        }
        if (got != expected) {
            state.SkipWithError("unexpected bytes on the line");
            break;
        }
    }
    ::close(fd);
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(BM_RoundTripDriver)
    ->ArgName("delay_ms")
    ->Arg(2)
    ->Arg(0)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RoundTripRecorder)
    ->ArgNames({"delay_ms", "recording"})
    ->Args({2, 0})
    ->Args({2, 1})
    ->Args({0, 0})
    ->Args({0, 1})
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RecorderChunks)->ArgName("recording")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RoundTripPlain)
    ->ArgName("delay_ms")
    ->Arg(2)
    ->Arg(0)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
