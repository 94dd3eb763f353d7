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
    ~CashControlExc() throw() {}

    // throw() is C++98's spelling of noexcept; a Qt 4.8 host compiles this header as C++98.
    const char* what() const throw() { return text.constData(); }
    QString message() const { return QString::fromUtf8(text.constData(), text.size()); }

private:
    QByteArray text;
};
