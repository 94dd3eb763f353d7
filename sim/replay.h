#pragma once

#include "trace/traceformat.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace sim {

// One request of a trace and what the host read after it, with the time each chunk came after
// the request. Bytes the host threw away unread are left out: they changed nothing the host did.
struct ReplayStep
{
    struct Reply
    {
        qint64 afterUs;
        QByteArray bytes;
    };
    qint64 number = 0; // the exchange's number in `cpibcr trace`
    int recording = 0;
    qint64 us = 0;
    QByteArray request;
    QList<Reply> replies;
};

QList<ReplayStep> replaySteps(const QList<trace::Record>& records);

// The recycler's side of a trace, played back: each frame the host sends is compared with the
// next recorded request, and when it is the same, the recorded answer chunks are due at their
// recorded distance from it, divided by the speed. Pure: time is given, the caller does the I/O.
class Replay
{
public:
    struct Out
    {
        qint64 dueUs;
        QByteArray bytes;
    };

    Replay(QList<ReplayStep> steps, double speed);

    // Bytes from the host at `nowUs`; returns what goes back and when.
    QList<Out> receive(const QByteArray& bytes, qint64 nowUs);
    // A partial frame that has not grown for the inter-byte time-out is taken as it stands.
    QList<Out> expire(qint64 nowUs);
    // When expire() is next due; -1 when nothing is pending.
    qint64 deadline() const;

    bool diverged() const { return !divergenceText.isEmpty(); }
    // The first divergence: the recorded request against the received one.
    QString divergence() const { return divergenceText; }
    bool complete() const { return next >= steps.size(); }
    int matched() const { return next; }
    int total() const { return steps.size(); }
    // Things the replay did that the recording did not show, as they happened.
    QStringList takeNotes();

    static const int interByteTimeoutMs = 50;

private:
    QList<Out> handle(const QByteArray& frame, qint64 nowUs);

    QList<ReplayStep> steps;
    double speed;
    int next = 0;
    bool echoing = false;
    QByteArray pending;
    qint64 lastByteUs = 0;
    QString divergenceText;
    QStringList notes;
};

} // namespace sim
