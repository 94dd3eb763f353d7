#pragma once

#include <host/abstractserialdevice.h>

#include <QObject>
#include <QString>

#include <cstddef>
#include <termios.h>

// The host's serial port object on a Qt 4 terminal, which has no QSerialPort: a POSIX
// terminal device in raw mode. The line settings arrive as text before the port is used
// and are applied at once when it is open, otherwise when it opens.
class TermiosPort : public QObject, public hw::AbstractSerialDevice
{
    Q_OBJECT
    Q_INTERFACES(hw::AbstractSerialDevice)
public:
    explicit TermiosPort(QObject* parent = 0);
    ~TermiosPort();

    bool open(const QString& path);
    void close();
    QString errorString() const { return lastError; }

    bool setBaudRate(const QString& value);
    bool setDataBits(const QString& value);
    bool setParity(const QString& value);
    bool setStopBits(const QString& value);
    bool setFlowControl(const QString& value);

    void discardInput();
    void write(const QByteArray& data);
    bool waitForInput(int msecs);
    QByteArray read(int maxSize);

private:
    // One spelling of a setting and the termios flags it stands for.
    struct Spelling
    {
        const char* text;
        tcflag_t flags;
    };

    template <std::size_t N>
    bool choose(tcflag_t& field, const Spelling (&known)[N], const char* setting, const QString& value)
    {
        return choose(field, known, N, setting, value);
    }
    bool choose(tcflag_t& field, const Spelling* known, std::size_t count, const char* setting,
                const QString& value);
    bool refuse(const QString& setting, const QString& value);
    bool apply();

    int fd;
    speed_t speed;
    tcflag_t size;
    tcflag_t parity;
    tcflag_t stopBits;
    tcflag_t flow;
    QString lastError;
};
