#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

namespace CcTalk {

// Failure of the ccTalk link or of the device. what() is "name, message", or the
// message alone for an unnamed device, as UTF-8.
class Exception : public std::exception
{
public:
    Exception(const QString& message, const QString& deviceName = QString());
    ~Exception() override;

    const char* what() const noexcept override;

    QString message() const;
    QString deviceName() const;

private:
    QByteArray msg;
    QByteArray name;
    QByteArray text;
};

// The device answered BUSY.
class BusyException : public Exception
{
public:
    using Exception::Exception;
};

// The device answered NAK.
class NakException : public Exception
{
public:
    using Exception::Exception;
};

} // namespace CcTalk
