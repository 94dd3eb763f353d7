#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// The one exception a cash-control driver throws toward the host. It holds
// the message as 8-bit text in the host's C-string codec, which is UTF-8.
class CashControlExc : public std::exception
{
public:
    explicit CashControlExc(const QByteArray& bytes) : text(bytes) {}
    explicit CashControlExc(const QString& message) : text(message.toUtf8()) {}

    const char* what() const noexcept override { return text.constData(); }
    QString message() const { return QString::fromUtf8(text.constData(), text.size()); }

private:
    QByteArray text;
};
