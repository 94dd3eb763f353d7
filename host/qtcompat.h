#pragma once

// The plug-in's code builds against the terminal's Qt 4.8 and against Qt 5.15. What those two
// spell differently lives here and nowhere else.
#include <QByteArray>
#include <QDateTime>
#include <QSet>
#include <QString>
#include <QtGlobal>

#if QT_VERSION < 0x050000
// Qt 4 has no compile-time strings; every literal of the plug-in is UTF-8 and is converted
// explicitly, so the host's C-string codec never touches it.
#define QStringLiteral(str) QString::fromUtf8(str, int(sizeof(str)) - 1)
#endif

namespace qtcompat {

// "01 AB FF": each byte as two upper-case hex digits, separated by one character.
inline QString toHex(const QByteArray& data, char separator)
{
    static const char digits[] = "0123456789ABCDEF";
    QString text;
    text.reserve(data.size() * 3);
    for (int i = 0; i < data.size(); ++i) {
        if (i > 0)
            text += QLatin1Char(separator);
        const unsigned char byte = static_cast<unsigned char>(data.at(i));
        text += QLatin1Char(digits[byte >> 4]);
        text += QLatin1Char(digits[byte & 0x0f]);
    }
    return text;
}

// Qt 4 decodes only NUL-terminated char pointers; these take the whole array.
inline QString fromUtf8(const QByteArray& bytes)
{
    return QString::fromUtf8(bytes.constData(), bytes.size());
}

inline QDateTime fromSecsSinceEpoch(qint64 secs)
{
    return QDateTime::fromMSecsSinceEpoch(secs * 1000);
}

inline qint64 toSecsSinceEpoch(const QDateTime& time)
{
    return time.toMSecsSinceEpoch() / 1000;
}

// The values of a container; of a map, its mapped values.
template <typename T, typename Container> QSet<T> toSet(const Container& items)
{
    QSet<T> set;
    for (typename Container::const_iterator it = items.constBegin(); it != items.constEnd(); ++it)
        set.insert(*it);
    return set;
}

} // namespace qtcompat
