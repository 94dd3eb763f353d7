#pragma once

#include <QByteArray>
#include <QList>

#include <functional>

namespace sim {

// Faults of the line between the recycler and the host: which request is answered BUSY or
// NAK instead of being carried out, which answer is lost, spoilt, cut short, split or has
// something in front of it. Pure: the server that owns the line decides when the pieces go out.
struct LineFaults
{
    // Bytes for the line, `pauseMs` after the previous piece (the first piece: once the
    // answer is due).
    struct Piece
    {
        int pauseMs;
        QByteArray bytes;
    };

    int drop = 0;        // carry out, lose the answer
    int dropHeader = -1; // the header `drop` applies to; -1 for any
    int busy = 0;        // BUSY instead of carrying out
    int nak = 0;         // NAK instead of carrying out
    int corrupt = 0;     // spoil the answer's checksum
    // Cut the next answer's last data byte, length byte and checksum kept right. An answer
    // without data (ACK, BUSY, NAK) has nothing to cut: it goes out whole and uses the
    // fault up all the same, so the fault never moves on to a later exchange. A lost
    // answer does not use it.
    int shorten = 0;
    int foreign = 0;     // a frame between stations 3 and 2 in front of the answer
    int badFrame = 0;    // a 130-byte frame to the host with a wrong checksum in front of it
    QByteArray garbage;  // bytes in front of the next answer
    int splitPieces = 0; // the next answer in this many pieces
    int splitPauseMs = 0;

    // What goes back for one request addressed to the device at `address`; `device` carries
    // the request out and returns its answer frame (empty for silence). Nothing when the
    // answer is lost or the device stays silent.
    QList<Piece> respond(const QByteArray& request, quint8 address,
                         const std::function<QByteArray(const QByteArray&)>& device);
    void clear() { *this = LineFaults(); }
};

} // namespace sim
