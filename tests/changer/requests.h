#pragma once

#include "support/frames.h"

#include <QByteArray>
#include <QList>
#include <QMap>

#include <initializer_list>
#include <utility>

namespace changertest {

// The frame of a request from the host to the changer: header and data given.
inline QByteArray req(quint8 header, const QByteArray& data = QByteArray())
{
    return testsupport::request(header, data);
}

inline QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray out;
    for (int v : values)
        out.append(char(v));
    return out;
}

inline QMap<unsigned int, long long>
denoms(std::initializer_list<std::pair<const unsigned int, long long>> items)
{
    return QMap<unsigned int, long long>(items);
}

// A list of expected frames, for comparison with the frames written.
inline QList<QByteArray> frames(const QList<QByteArray>& list)
{
    return list;
}

// A hopper of the recycler the tests discover.
struct Hopper
{
    QByteArray coinId;
    quint16 count = 0;
    quint16 capacity = 1000;
    bool enabled = true;
};

// Frames of the discovery of a recycler with that many positions and those hoppers
// (enabled or not), in the order the changer sends them.
inline QList<QByteArray> discoveryRequests(int positions, const QList<Hopper>& hoppers)
{
    QList<QByteArray> out;
    out << req(122) << req(247) << req(84, bytes({2, 5})) << req(84, bytes({2, 1})) << req(84, bytes({2, 4}));
    for (int p = 1; p <= positions; ++p)
        out << req(184, bytes({p}));
    for (int h = 1; h <= hoppers.size(); ++h) {
        out << req(84, bytes({h + 2, 0}));
        if (!hoppers.at(h - 1).enabled)
            continue;
        out << req(84, bytes({h + 2, 5})) << req(84, bytes({h + 2, 1})) << req(84, bytes({h + 2, 4}))
            << req(119, bytes({h})) << req(84, bytes({h + 2, 8}));
    }
    out << req(117);
    return out;
}

} // namespace changertest
