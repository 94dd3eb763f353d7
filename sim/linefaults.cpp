#include "linefaults.h"

#include "frame.h"

#include <algorithm>

namespace sim {

QList<LineFaults::Piece> LineFaults::respond(const QByteArray& request, quint8 address,
                                             const std::function<QByteArray(const QByteArray&)>& device)
{
    QByteArray answer;
    if (busy > 0) {
        --busy;
        answer = frame::make(frame::source(request), address, frame::Busy);
    } else if (nak > 0) {
        --nak;
        answer = frame::make(frame::source(request), address, frame::Nak);
    } else {
        answer = device(request);
        if (drop > 0 && !answer.isEmpty() && (dropHeader < 0 || dropHeader == frame::header(request))) {
            --drop;
            answer.clear();
        }
    }
    QList<Piece> pieces;
    if (answer.isEmpty())
        return pieces;
    if (shorten > 0) {
        --shorten;
        const QByteArray data = frame::data(answer);
        if (!data.isEmpty())
            answer = frame::make(frame::dest(answer), frame::source(answer), frame::header(answer),
                                 data.left(data.size() - 1));
    }
    if (corrupt > 0) {
        --corrupt;
        answer[answer.size() - 1] = char(answer.at(answer.size() - 1) ^ 0x5A);
    }
    if (foreign > 0 || badFrame > 0) {
        QByteArray shifted = frame::data(answer);
        for (char& c : shifted)
            c = char(c + 1);
        QByteArray decoy;
        if (foreign > 0) {
            --foreign;
            decoy = frame::make(2, 3, frame::Ack, shifted);
        } else {
            --badFrame;
            shifted.append(QByteArray(std::max(0, 130 - int(shifted.size())), '\0'));
            decoy = frame::make(frame::dest(answer), address, frame::Ack, shifted);
            decoy[decoy.size() - 1] = char(decoy.at(decoy.size() - 1) ^ 0x5A);
        }
        pieces.append(Piece{0, decoy});
    }
    if (!garbage.isEmpty()) {
        pieces.append(Piece{0, garbage});
        garbage.clear();
    }
    if (splitPieces > 1) {
        const int count = std::min(splitPieces, int(answer.size()));
        const int size = (answer.size() + count - 1) / count;
        for (int i = 0; i < answer.size(); i += size)
            pieces.append(Piece{i == 0 ? 0 : splitPauseMs, answer.mid(i, size)});
        splitPieces = 0;
    } else {
        pieces.append(Piece{0, answer});
    }
    return pieces;
}

} // namespace sim
