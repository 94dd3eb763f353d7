// Command round trip over a pseudo-terminal against the simulated recycler (echo on): a simple
// poll through CcTalk::Device::exec and hw::SerialPort, against a plain termios loop writing the
// same five bytes and reading the same ten back (echo and answer) from the same simulator.
// The argument is the simulator's answer delay in milliseconds: 2 is its default, 0 leaves
// only the cost of the two ends and the pseudo-terminal.

#include "cctalk/device.h"
#include "cctalk/identcommands.h"
#include "support/ptyrig.h"

#include <benchmark/benchmark.h>

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

void BM_RoundTripDriver(benchmark::State& state)
{
    const auto rig = startRig(state, testsupport::PtyRig::OpenPort);
    if (!rig)
        return;
    CcTalk::Device device;
    device.setAddress(55);
    device.setSerial(&rig->port);
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
    state.SetItemsProcessed(state.iterations());
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
BENCHMARK(BM_RoundTripPlain)
    ->ArgName("delay_ms")
    ->Arg(2)
    ->Arg(0)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
