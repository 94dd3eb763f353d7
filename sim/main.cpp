#include "config.h"
#include "control.h"
#include "replay.h"
#include "replayserver.h"
#include "serialline.h"
#include "simulator.h"

#include "host/fdwrite.h"
#include "trace/tracefiles.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

int signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char b = 1;
    [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &b, 1);
}

void usage(FILE* to)
{
    std::fprintf(
        to, "usage: cpibcr-sim [--config FILE] [--device PATH | --link PATH] [--control PATH]\n"
            "                  [--no-echo] [--dump-config] [--version]\n"
            "       cpibcr-sim --replay FILE... [--recording N] [--speed N] [--device PATH | --link PATH]\n"
            "Simulates a CPI BCR coin recycler at ccTalk address 55 on a pseudo-terminal\n"
            "(or on the serial device given with --device) and prints the port path.\n"
            "  --config FILE   JSON configuration; missing keys keep the built-in defaults\n"
            "  --device PATH   serve an existing serial device instead of a pseudo-terminal\n"
            "  --link PATH     make PATH a symbolic link to the pseudo-terminal\n"
            "  --control PATH  also take commands from a FIFO (if PATH is one) or a Unix socket\n"
            "  --no-echo       do not repeat the host's bytes back\n"
            "  --dump-config   print the effective configuration as JSON and exit\n"
            "  --replay FILE...  play the recycler's side of a line recording (cpibcr --trace, or\n"
            "                  the driver's own, FILE.2 FILE.1 FILE read in the order written)\n"
            "                  instead of simulating; exits 1 at the first request that differs\n"
            "  --recording N   with --replay: start at recording N as `cpibcr trace` numbers them\n"
            "  --speed N       with --replay: recorded pauses divided by N (default 1)\n"
            "  --version       print the version and exit\n"
            "Commands are read from standard input, one per line; type help for the list.\n");
}

void say(int fd, const QString& text)
{
    if (!text.isEmpty())
        hw::writeAll(fd, text.toUtf8() + '\n', hw::WhenFull::GiveUp);
}

// Makes linkPath, when given, a symbolic link to the port in place of an older link.
bool linkPort(const QString& linkPath, const QByteArray& port)
{
    if (linkPath.isEmpty())
        return true;
    const QByteArray link = linkPath.toLocal8Bit();
    struct stat st;
    if (lstat(link.constData(), &st) == 0 && S_ISLNK(st.st_mode))
        ::unlink(link.constData());
    if (::symlink(port.constData(), link.constData()) != 0) {
        std::fprintf(stderr, "cpibcr-sim: %s: %s\n", link.constData(), std::strerror(errno));
        return false;
    }
    return true;
}

// A signal that ends the program makes signalPipe readable.
bool catchSignals()
{
    if (pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return true;
}

// Collects bytes from one source and hands out complete lines.
struct LineSource
{
    int fd;
    int replyFd;
    QByteArray pending;
};

// The steps of the files from recording `from` (1: all of them); empty after an error was printed.
QList<sim::ReplayStep> loadSteps(const QStringList& paths, int from, int* baud)
{
    trace::FileSet files;
    QString error;
    if (!files.load(paths, &error)) {
        std::fprintf(stderr, "cpibcr-sim: %s\n", error.toLocal8Bit().constData());
        return {};
    }
    QList<trace::Record> records;
    trace::Reader reader(files.bytes, trace::Reader::AnyPoint);
    trace::Record record;
    trace::Reader::Result result;
    while ((result = reader.next(&record)) == trace::Reader::Ok)
        records.append(record);
    if (result == trace::Reader::Error) {
        std::fprintf(stderr, "cpibcr-sim: %s: %s\n",
                     files.where(reader.errorLine()).toLocal8Bit().constData(),
                     reader.reason().toLocal8Bit().constData());
        return {};
    }
    if (reader.skippedLines() > 0)
        std::printf("skipped %lld line(s), %lld byte(s), before the first whole exchange\n",
                    reader.skippedLines(), reader.skippedBytes());
    QList<sim::ReplayStep> steps;
    for (const sim::ReplayStep& step : sim::replaySteps(records)) {
        if (step.recording >= from)
            steps.append(step);
    }
    int recording = 0;
    for (const trace::Record& r : records) {
        if (r.kind == trace::Record::HeaderRecord && ++recording == from && r.header.baudRate > 0)
            *baud = r.header.baudRate;
    }
    if (steps.isEmpty())
        std::fprintf(stderr, "cpibcr-sim: %s: %s\n", paths.join(QLatin1Char(' ')).toLocal8Bit().constData(),
                     recording < from ? "there is no such recording"
                                      : "the recording holds no request to answer");
    return steps;
}

int replay(const QStringList& tracePaths, int from, double speed, const QString& devicePath,
           const QString& linkPath)
{
    int baud = 115200;
    const QList<sim::ReplayStep> steps = loadSteps(tracePaths, from, &baud);
    if (steps.isEmpty())
        return 2;

    int fd = -1, slave = -1;
    QString port, error;
    if (devicePath.isEmpty()) {
        // The slave side stays open here, so that the host may close and reopen the port.
        if (!sim::openRawPty(baud, &fd, &slave, &port, &error)) {
            std::fprintf(stderr, "cpibcr-sim: %s\n", error.toLocal8Bit().constData());
            return 1;
        }
    } else {
        fd = sim::openRawDevice(devicePath, baud, &error);
        if (fd < 0) {
            std::fprintf(stderr, "cpibcr-sim: %s\n", error.toLocal8Bit().constData());
            return 1;
        }
        port = devicePath;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    const QByteArray link = linkPath.toLocal8Bit();
    if (!linkPort(linkPath, port.toLocal8Bit()) || !catchSignals())
        return 1;

    std::printf("port: %s\n", port.toLocal8Bit().constData());
    if (!linkPath.isEmpty())
        std::printf("link: %s\n", link.constData());
    std::printf("replay: %d requests from %s, speed %s\n", int(steps.size()),
                trace::writtenOrder(tracePaths).join(QLatin1Char(' ')).toLocal8Bit().constData(),
                QByteArray::number(speed, 'g', 6).constData());
    std::fflush(stdout);

    sim::Replay player(steps, speed);
    const int status = sim::serveReplay(
        player, fd, signalPipe[0], 1500, [](const QString& text) { say(STDOUT_FILENO, text); },
        [](const QString& text) { say(STDERR_FILENO, QStringLiteral("cpibcr-sim: ") + text.trimmed()); });
    ::close(fd);
    if (slave >= 0)
        ::close(slave);
    if (!linkPath.isEmpty())
        ::unlink(link.constData());
    return status;
}

// --replay with its --speed and --recording checked.
int replayCommand(const QStringList& paths, const QString& speedText, const QString& recordingText,
                  const QString& devicePath, const QString& linkPath)
{
    double speed = 1;
    if (!speedText.isEmpty()) {
        bool ok = false;
        speed = speedText.toDouble(&ok);
        if (!ok || !(speed > 0) || speed > 1000) {
            std::fprintf(stderr, "cpibcr-sim: --speed takes a number above 0 and up to 1000, not \"%s\"\n",
                         speedText.toLocal8Bit().constData());
            return 2;
        }
    }
    int from = 1;
    if (!recordingText.isEmpty()) {
        bool ok = false;
        from = recordingText.toInt(&ok);
        if (!ok || from < 1) {
            std::fprintf(stderr, "cpibcr-sim: --recording takes a recording number from 1, not \"%s\"\n",
                         recordingText.toLocal8Bit().constData());
            return 2;
        }
    }
    return replay(paths, from, speed, devicePath, linkPath);
}

struct Options
{
    QString configPath, devicePath, linkPath, controlPath, replayPath, speedText, recordingText;
    QStringList morePaths; // further trace files after --replay FILE
    bool noEcho = false, dump = false;
};

// Reads the command line into o. Returns -1 to go on, or the exit status once help or the version
// is printed or a usage error is reported.
int parseOptions(int argc, char** argv, Options& o)
{
    // An option either takes the next argument as its value or is a switch.
    const struct
    {
        const char* name;
        QString* value;
        bool* on;
    } options[] = {
        {"--config", &o.configPath, nullptr},       {"--device", &o.devicePath, nullptr},
        {"--link", &o.linkPath, nullptr},           {"--control", &o.controlPath, nullptr},
        {"--replay", &o.replayPath, nullptr},       {"--speed", &o.speedText, nullptr},
        {"--recording", &o.recordingText, nullptr}, {"--no-echo", nullptr, &o.noEcho},
        {"--dump-config", nullptr, &o.dump},
    };
    for (int i = 1; i < argc; ++i) {
        const QString a = QString::fromLocal8Bit(argv[i]);
        const auto option = std::find_if(std::begin(options), std::end(options),
                                         [&](const auto& opt) { return a == QLatin1String(opt.name); });
        if (option != std::end(options)) {
            if (option->on) {
                *option->on = true;
            } else if (i + 1 >= argc) {
                std::fprintf(stderr, "cpibcr-sim: %s needs a value\n", argv[i]);
                return 2;
            } else {
                *option->value = QString::fromLocal8Bit(argv[++i]);
            }
        } else if (a == QLatin1String("-h") || a == QLatin1String("--help")) {
            usage(stdout);
            return 0;
        } else if (a == QLatin1String("--version")) {
            std::printf("cpibcr-sim %s\n", CPIBCR_VERSION);
            return 0;
        } else if (!o.replayPath.isEmpty() && !a.startsWith(QLatin1Char('-'))) {
            o.morePaths.append(a);
        } else {
            std::fprintf(stderr, "cpibcr-sim: unknown option %s\n", argv[i]);
            usage(stderr);
            return 2;
        }
    }
    return -1;
}

// --replay, which goes with none of the device model's options.
int replayFromOptions(const Options& o)
{
    if (!o.configPath.isEmpty() || !o.controlPath.isEmpty() || o.noEcho || o.dump) {
        std::fprintf(stderr, "cpibcr-sim: --replay plays a recording and takes no --config, --control, "
                             "--no-echo or --dump-config\n");
        return 2;
    }
    return replayCommand(QStringList(o.replayPath) + o.morePaths, o.speedText, o.recordingText, o.devicePath,
                         o.linkPath);
}

// The configuration of --config and --no-echo; false once the file's error is printed.
bool loadConfig(const Options& o, sim::Config& config)
{
    config = sim::Config::defaults();
    if (!o.configPath.isEmpty()) {
        QString error;
        config = sim::Config::fromJsonFile(o.configPath, &error);
        if (!error.isEmpty()) {
            std::fprintf(stderr, "cpibcr-sim: %s\n", error.toLocal8Bit().constData());
            return false;
        }
    }
    if (o.noEcho)
        config.echo = false;
    return true;
}

// The --control endpoint: a FIFO, opened read-write so that it never reports end of file between
// writers, or else a listening Unix socket in place of an older one.
struct ControlEndpoint
{
    int listenFd = -1;
    int fifoFd = -1;
};

bool listenOn(const QByteArray& control, int* listenFd)
{
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    if (size_t(control.size()) >= sizeof addr.sun_path) {
        std::fprintf(stderr, "cpibcr-sim: control path too long\n");
        return false;
    }
    std::strncpy(addr.sun_path, control.constData(), sizeof addr.sun_path - 1);
    struct stat st;
    if (lstat(control.constData(), &st) == 0 && S_ISSOCK(st.st_mode))
        ::unlink(control.constData());
    *listenFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (*listenFd < 0 || ::bind(*listenFd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(*listenFd, 8) != 0) {
        std::fprintf(stderr, "cpibcr-sim: %s: %s\n", control.constData(), std::strerror(errno));
        return false;
    }
    return true;
}

// False once the error is printed.
bool openControl(const QByteArray& control, ControlEndpoint& endpoint)
{
    struct stat st;
    if (stat(control.constData(), &st) == 0 && S_ISFIFO(st.st_mode))
        endpoint.fifoFd = ::open(control.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    else if (!listenOn(control, &endpoint.listenFd))
        return false;
    if (endpoint.listenFd < 0 && endpoint.fifoFd < 0) {
        std::fprintf(stderr, "cpibcr-sim: %s: %s\n", control.constData(), std::strerror(errno));
        return false;
    }
    return true;
}

// Reads what a source has and carries out its complete lines; false when the source is closed.
bool readCommands(LineSource& s, sim::ControlChannel& channel)
{
    char buf[1024];
    const ssize_t n = ::read(s.fd, buf, sizeof buf);
    if (n <= 0)
        return n < 0 && (errno == EAGAIN || errno == EINTR);
    s.pending.append(buf, int(n));
    int nl;
    while ((nl = s.pending.indexOf('\n')) >= 0) {
        const QString line = QString::fromUtf8(s.pending.left(nl)).trimmed();
        s.pending.remove(0, nl + 1);
        say(s.replyFd, channel.execute(line));
        if (channel.quitRequested())
            break;
    }
    return true;
}

void dropSource(std::vector<LineSource>& sources, int fd)
{
    for (auto it = sources.begin(); it != sources.end(); ++it) {
        if (it->fd == fd) {
            // Standard input at its end leaves the simulator serving the port until a signal.
            if (fd != STDIN_FILENO)
                ::close(fd);
            sources.erase(it);
            return;
        }
    }
}

// Takes command lines from standard input and the control endpoint until quit, a signal or the loss
// of the port; true when the port was lost.
bool serve(sim::Simulator& simulator, const ControlEndpoint& endpoint, const QByteArray& port)
{
    sim::ControlChannel channel(simulator);
    std::vector<LineSource> sources;
    sources.push_back(LineSource{STDIN_FILENO, STDOUT_FILENO, QByteArray()});
    if (endpoint.fifoFd >= 0)
        sources.push_back(LineSource{endpoint.fifoFd, STDOUT_FILENO, QByteArray()});
    while (!channel.quitRequested()) {
        std::vector<pollfd> fds;
        fds.push_back(pollfd{signalPipe[0], POLLIN, 0});
        if (endpoint.listenFd >= 0)
            fds.push_back(pollfd{endpoint.listenFd, POLLIN, 0});
        const size_t first = fds.size();
        for (const LineSource& s : sources)
            fds.push_back(pollfd{s.fd, POLLIN, 0});
        if (!simulator.isRunning()) {
            std::fprintf(stderr, "cpibcr-sim: %s: the port was lost\n", port.constData());
            return true;
        }
        if (::poll(fds.data(), nfds_t(fds.size()), 500) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if (fds[0].revents & POLLIN)
            break;
        if (endpoint.listenFd >= 0 && (fds[1].revents & POLLIN)) {
            const int client = ::accept4(endpoint.listenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (client >= 0)
                sources.push_back(LineSource{client, client, QByteArray()});
        }
        std::vector<int> closed;
        for (size_t i = 0; i < sources.size() && first + i < fds.size(); ++i) {
            if ((fds[first + i].revents & (POLLIN | POLLHUP | POLLERR)) && !readCommands(sources[i], channel))
                closed.push_back(sources[i].fd);
        }
        for (int fd : closed)
            dropSource(sources, fd);
    }
    return false;
}

// The device model on a pseudo-terminal or a serial device, until quit or a signal.
int simulate(const Options& o)
{
    sim::Config config;
    if (!loadConfig(o, config))
        return 2;
    if (o.dump) {
        std::fputs(config.toJson().constData(), stdout);
        return 0;
    }
    sim::Simulator simulator(config);
    QString error;
    const bool opened =
        o.devicePath.isEmpty() ? simulator.openPty(&error) : simulator.openDevice(o.devicePath, &error);
    if (!opened) {
        std::fprintf(stderr, "cpibcr-sim: %s\n", error.toLocal8Bit().constData());
        return 1;
    }
    const QByteArray port = simulator.portPath().toLocal8Bit();
    if (!linkPort(o.linkPath, port) || !catchSignals())
        return 1;
    const QByteArray control = o.controlPath.toLocal8Bit();
    ControlEndpoint endpoint;
    if (!o.controlPath.isEmpty() && !openControl(control, endpoint))
        return 1;

    std::printf("port: %s\n", port.constData());
    if (!o.linkPath.isEmpty())
        std::printf("link: %s\n", o.linkPath.toLocal8Bit().constData());
    if (!o.controlPath.isEmpty())
        std::printf("control: %s\n", control.constData());
    std::fflush(stdout);

    const bool lost = serve(simulator, endpoint, port);
    simulator.stop();
    if (endpoint.listenFd >= 0) {
        ::close(endpoint.listenFd);
        ::unlink(control.constData());
    }
    if (!o.linkPath.isEmpty())
        ::unlink(o.linkPath.toLocal8Bit().constData());
    return lost ? 1 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    Options o;
    const int status = parseOptions(argc, argv, o);
    if (status >= 0)
        return status;
    if (!o.replayPath.isEmpty())
        return replayFromOptions(o);
    if (!o.speedText.isEmpty() || !o.recordingText.isEmpty()) {
        std::fprintf(stderr, "cpibcr-sim: %s goes with --replay\n",
                     o.speedText.isEmpty() ? "--recording" : "--speed");
        return 2;
    }
    return simulate(o);
}
