// Answer assembly from arbitrary pieces: the byte stream after the chunk plan is fed to a
// CcTalk::Response piece by piece and compared, after every piece, with a plain model of
// the receiver (echo skipping, resynchronisation one byte at a time, first good frame wins).

#include "cctalk/package.h"
#include "fuzzinput.h"

#include <QVector>

namespace {

// Two's complement of the 8-bit sum of the first k bytes, k being the frame length read as a
// signed byte; 0 when k is not 1 to 127.
quint8 modelChecksum(const QByteArray& bytes, int length)
{
    const int k = qint8(quint8(length & 0xFF));
    if (k <= 0)
        return 0;
    unsigned sum = 0;
    for (int i = 0; i < k; ++i)
        sum += quint8(bytes.at(i));
    return quint8(256 - (sum & 0xFF));
}

struct ModelReceiver
{
    QByteArray buffer;
    bool valid = false;
    quint8 dest = 0;
    quint8 src = 0;
    quint8 header = 0;
    QByteArray data;

    void add(const QByteArray& piece)
    {
        valid = false;
        buffer.append(piece);
        while (buffer.size() > 4) {
            const int expected = (quint8(buffer.at(1)) + 5) & 0xFF;
            if (expected > buffer.size())
                return;
            if (modelChecksum(buffer, expected) != 0) {
                buffer.remove(0, 1);
                continue;
            }
            if (quint8(buffer.at(2)) == 1) {
                // A length byte of 251 announces an empty frame: an echo of it goes a byte at a
                // time, or the scan would never move.
                buffer.remove(0, expected > 0 ? expected : 1);
                continue;
            }
            dest = quint8(buffer.at(0));
            src = quint8(buffer.at(2));
            header = quint8(buffer.at(3));
            data = buffer.mid(4, quint8(buffer.at(1)));
            buffer.clear();
            valid = true;
            return;
        }
    }
};

void compare(const CcTalk::Response& response, const ModelReceiver& model)
{
    fuzz::check(response.isValid() == model.valid, "completion differs from the model");
    if (!model.valid)
        return;
    fuzz::check(response.getDestination() == model.dest, "destination differs");
    fuzz::check(response.getSource() == model.src, "source differs");
    fuzz::check(response.getSource() != 1, "the host's own frame was taken as the answer");
    fuzz::check(int(response.getHeader()) == model.header, "header differs");
    fuzz::check(response.getData() == model.data, "data differ");
    fuzz::check(QByteArray(response) == model.data, "data bytes differ");
    fuzz::check(response.isNAK() == (model.header == 5), "NAK flag differs");
    fuzz::check(response.isBUSY() == (model.header == 6), "BUSY flag differs");

    const CcTalk::Response copy(response);
    fuzz::check(copy == response, "a copy differs from its original");
    // The whole frame again, as the package writes it.
    const QByteArray frame = static_cast<const CcTalk::Package&>(copy);
    fuzz::check(frame.size() == model.data.size() + 5, "re-serialised frame has the wrong size");
    fuzz::check(frame.mid(4, model.data.size()) == model.data, "re-serialised frame carries other data");
    if (frame.size() < 128)
        fuzz::check(copy.calkCrc(frame) == 0, "re-serialised frame fails its own checksum");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    fuzz::FuzzInput input(bytes, size);
    const int planSize = input.takeByte() % 8 + 1;
    QVector<int> plan;
    bool anyProgress = false;
    for (int i = 0; i < planSize; ++i) {
        plan << input.takeByte();
        anyProgress = anyProgress || plan.last() > 0;
    }
    const QByteArray stream = input.takeRest();

    CcTalk::Response response;
    ModelReceiver model;
    int offset = 0;
    int step = 0;
    while (offset < stream.size()) {
        const int want = anyProgress ? plan.at(step++ % plan.size()) : int(stream.size());
        const QByteArray piece = stream.mid(offset, want);
        offset += piece.size();
        response.addRawData(piece);
        model.add(piece);
        compare(response, model);
    }
    // A read that brings nothing must neither complete nor spoil an unfinished answer.
    response.addRawData(QByteArray());
    model.add(QByteArray());
    compare(response, model);
    return 0;
}
