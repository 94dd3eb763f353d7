#include "cctalk/device.h"

#include "cctalk/identcommands.h"
#include "host/qtcompat.h"

#include <QElapsedTimer>

#include <unistd.h>

namespace CcTalk {

namespace {

const int waitMsecs = 1000;
const int attempts = 5;
const int retryPauseMsecs = 200;
const int busyPauseMsecs = 1000;

QString hexBytes(const QByteArray& bytes)
{
    if (bytes.isEmpty())
        return QString();
    return QLatin1Char(' ') + qtcompat::toHex(bytes, ' ');
}

qint64 monotonicMsecs()
{
    static const QElapsedTimer timer = [] {
        QElapsedTimer t;
        t.start();
        return t;
    }();
    return timer.elapsed();
}

void threadSleep(int msecs)
{
    ::usleep(useconds_t(msecs) * 1000);
}

} // namespace

Device::Device(QObject* parent)
    : QObject(parent), logger(logging::logger("cctalk")), clock(monotonicMsecs), sleeper(threadSleep)
{
}

Device::~Device() = default;

void Device::setClock(Clock value)
{
    clock = value ? std::move(value) : Clock(monotonicMsecs);
}

void Device::setSleeper(Sleeper value)
{
    sleeper = value ? std::move(value) : Sleeper(threadSleep);
}

void Device::commonInit()
{
    logInfo(QStringLiteral("адрес на шине ccTalk - %1").arg(unsigned(address)));
    connect();
    logInfo(identText(ReqEquipmentCategoryId(), QStringLiteral("тип устройства - ")));
    logInfo(identText(ReqManufacturerId(), QStringLiteral("производитель - ")));
    logInfo(identText(ReqProductCode(), QStringLiteral("модель - ")));
    logInfo(identText(ReqBuildCode(), QStringLiteral("сборка - ")));
    const Response serialNumber = exec(ReqSerialNumber());
    logInfo(QStringLiteral("серийный номер - %1").arg(serialNumber.getUint(0, 3)));
    logInfo(identText(ReqSoftwareRevision(), QStringLiteral("версия прошивки - ")));
}

QString Device::identText(const Request& request, const QString& prefix)
{
    const Response answer = exec(request);
    QByteArray line = prefix.toUtf8() + QByteArray(answer);
    const int zero = line.indexOf('\0');
    if (zero >= 0)
        line.truncate(zero);
    return qtcompat::fromUtf8(line);
}

void Device::checkState()
{
    logInfo(QStringLiteral("Проверка состояния устройства"));
    connect();
}

void Device::connect()
{
    logInfo(QStringLiteral("Проверка соединения с устройством"));
    exec(SimplePoll());
}

Response Device::exec(const Request& request)
{
    logDebug(QStringLiteral("Выполнение команды %1").arg(request.getName()));
    request.setAddress(address);
    int attemptsLeft = attempts;
    // Every exchange has the whole BUSY allowance: a long-lived object must not run out
    // of patience with a device that is busy now and then.
    int busyLeft = busyRetries;
    for (;;) {
        try {
            return receive(request);
        } catch (const NakException&) {
            throw;
        } catch (const BusyException&) {
            if (busyLeft == 0)
                throw;
            --busyLeft;
            sleep(busyPauseMsecs);
        } catch (const Exception&) {
            --attemptsLeft;
            sleep(retryPauseMsecs);
            if (!request.canBeSentAgain() || attemptsLeft <= 0)
                throw;
        }
    }
}

Response Device::receive(const Request& request)
{
    if (!serial)
        throwError<Exception>(QStringLiteral("Нет связи"));

    serial->discardInput();
    const QByteArray frame = request;
    const bool trace = logging::isTraceEnabled(logger);
    if (trace)
        logging::trace(logger, QStringLiteral("Отправка:") + hexBytes(frame));
    serial->write(frame);

    Response response;
    // Address 0 is the broadcast address: whichever device answers, answers from its
    // own address.
    if (address != broadcastAddress)
        response.expectFrom(address);
    QByteArray received;
    const qint64 started = clock();
    // A babbling or endless line must not hold the caller: past either bound the
    // attempt ends as if nothing had come.
    while (!response.isValid()) {
        if (clock() - started > maxAttemptMsecs)
            break;
        if (!serial->waitForInput(waitMsecs))
            break;
        const QByteArray chunk = serial->read(0);
        if (chunk.isEmpty())
            break;
        received.append(chunk);
        response.addRawData(chunk);
        if (!response.isValid() && received.size() > maxAttemptBytes)
            break;
    }
    // One line per attempt, however much a noisy line threw at it.
    if (response.foreignFrames() > 0 || response.droppedBytes() > 0)
        logWarn(QStringLiteral("Отброшено чужих кадров: %1, байт вне кадров: %2")
                    .arg(response.foreignFrames())
                    .arg(response.droppedBytes()));

    if (!response.isValid()) {
        if (trace)
            logging::trace(logger, QStringLiteral("Получено:") + hexBytes(received));
        throwError<Exception>(QStringLiteral("Нет связи"));
    }
    if (trace)
        logging::trace(logger, QStringLiteral("Получено:") + hexBytes(received));
    if (response.isNAK())
        throwError<NakException>(QStringLiteral("Ошибка выполнения команды"));
    if (response.isBUSY())
        throwError<BusyException>(QStringLiteral("Устройство занято"));
    // A checksum-correct answer of the wrong length is stale or mangled; read as it is, its
    // missing bytes would count as zeros.
    const AnswerLength expected = request.answerLength();
    const int size = response.getData().size();
    if (!expected.fits(size)) {
        logWarn(QStringLiteral("Ответ неверной длины на команду %1: байт данных: %2, ожидалось: %3")
                    .arg(request.getName())
                    .arg(size)
                    .arg(expected.toLog()));
        throwError<Exception>(QStringLiteral("Нет связи"));
    }
    return response;
}

void Device::sleep(int msecs) const
{
    if (msecs <= 0)
        return;
    sleeper(msecs);
}

void Device::logDebug(const QString& text) const
{
    logging::debug(logger, wrapWithName(text));
}

void Device::logInfo(const QString& text) const
{
    logging::info(logger, wrapWithName(text));
}

void Device::logWarn(const QString& text) const
{
    logging::warn(logger, wrapWithName(text));
}

void Device::logError(const QString& text) const
{
    logging::error(logger, wrapWithName(text));
}

QString Device::wrapWithName(const QString& text) const
{
    if (name.isEmpty())
        return text;
    return name + QStringLiteral(", ") + text;
}

} // namespace CcTalk
