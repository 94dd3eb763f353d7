#include "cctalk/exception.h"

#include "host/qtcompat.h"

namespace CcTalk {

Exception::Exception(const QString& message, const QString& deviceName)
    : msg(message.toUtf8()), name(deviceName.toUtf8())
{
    text = name.isEmpty() ? msg : name + ", " + msg;
}

Exception::~Exception() = default;

const char* Exception::what() const noexcept
{
    return text.constData();
}

QString Exception::message() const
{
    return qtcompat::fromUtf8(msg);
}

QString Exception::deviceName() const
{
    return qtcompat::fromUtf8(name);
}

} // namespace CcTalk
