// Answer assembly from arbitrary pieces. The input builds a line on which well-formed frames
// (answers, echoes, traffic between other nodes, frames to the host from another device), the
// same frames with a spoiled checksum, and raw bytes are mixed. The stream is fed to a
// CcTalk::Response piece by piece and compared, after every piece, with a plain model of the
// receiver (echo skipped, other stations' frames skipped, resynchronisation one byte at a time,
// first good frame wins). Whatever completes must be a frame to the host from the expected device
// whose bytes, checksum included, stand in the stream and sum to 0 modulo 256.
//
// Input: [plan size - 1 (bit 7: no expected source)][piece sizes...][stream records...]
// A stream byte below 0xF0 is itself; 0xF0 | bits starts a frame record:
//   bits 0-1  0 answer (1 <- 55), 1 echo (55 <- 1), 2 other nodes (2 <- 3), 3 to the host from
//             the source given by the next byte
//   bit 2     spoil the checksum
//   bit 3     the next byte is the data length (up to 250), else the next byte % 16
// then the header byte and the data bytes.

#include "cctalk/package.h"
#include "fuzzinput.h"
#include "tests/cctalk/referenceassembly.h"
#include "tests/support/frames.h"

#include <QVector>

namespace {

const quint8 host = 1;
const quint8 device = 55;

QByteArray wellFormed(quint8 dest, quint8 src, quint8 header, const QByteArray& data)
{
    return testsupport::frame(dest, src, header, data);
}

QByteArray buildStream(fuzz::FuzzInput& input)
{
    QByteArray stream;
    while (!input.empty()) {
        const quint8 b = input.takeByte();
        if (b < 0xF0) {
            stream.append(char(b));
            continue;
        }
        quint8 dest = host, src = device;
        switch (b & 3) {
        case 1:
            dest = device;
            src = host;
            break;
        case 2:
            dest = 2;
            src = 3;
            break;
        case 3:
            src = input.takeByte();
            break;
        default:
            break;
        }
        const int length = (b & 8) ? qMin<int>(input.takeByte(), 250) : input.takeByte() % 16;
        const quint8 header = input.takeByte();
        QByteArray f = wellFormed(dest, src, header, input.takeBytes(size_t(length)));
        if (b & 4)
            f[f.size() - 1] = char(f.at(f.size() - 1) ^ 0x5A);
        stream += f;
    }
    return stream;
}

void compare(const CcTalk::Response& response, const testsupport::ReferenceAssembly& model,
             const QByteArray& stream)
{
    fuzz::check(response.isValid() == model.valid, "completion differs from the model");
    fuzz::check(response.foreignFrames() == model.foreign, "count of skipped frames differs");
    fuzz::check(response.droppedBytes() == model.dropped, "count of dropped bytes differs");
    if (!model.valid)
        return;
    const QByteArray data = response.getData();
    fuzz::check(response.getDestination() == host, "a frame not addressed to the host completed");
    fuzz::check(response.getSource() != host, "the host's own frame was taken as the answer");
    if (model.expectedSource >= 0)
        fuzz::check(response.getSource() == model.expectedSource, "a frame from another device completed");
    fuzz::check(response.getSource() == quint8(model.frame.at(2)), "source differs");
    fuzz::check(int(response.getHeader()) == quint8(model.frame.at(3)), "header differs");
    fuzz::check(data == model.frame.mid(4, data.size()) && data.size() == model.frame.size() - 5,
                "data differ");
    fuzz::check(response.isNAK() == (model.frame.at(3) == 5), "NAK flag differs");
    fuzz::check(response.isBUSY() == (model.frame.at(3) == 6), "BUSY flag differs");

    // The completed frame with its checksum stands in the stream, and its bytes sum to 0.
    const QByteArray whole =
        wellFormed(response.getDestination(), response.getSource(), quint8(int(response.getHeader())), data);
    fuzz::check(whole == model.frame, "the completed frame is not the one on the line");
    fuzz::check(testsupport::sumsToZero(whole), "the completed frame fails its checksum");
    fuzz::check(stream.contains(whole), "the completed frame never was on the line");

    const CcTalk::Response copy(response);
    fuzz::check(copy == response, "a copy differs from its original");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    fuzz::FuzzInput input(bytes, size);
    const uint8_t first = input.takeByte();
    const int planSize = first % 8 + 1;
    const bool anySource = (first & 0x80) != 0;
    QVector<int> plan;
    bool anyProgress = false;
    for (int i = 0; i < planSize; ++i) {
        plan << input.takeByte();
        anyProgress = anyProgress || plan.last() > 0;
    }
    const QByteArray stream = buildStream(input);

    CcTalk::Response response;
    testsupport::ReferenceAssembly model;
    if (!anySource) {
        response.expectFrom(device);
        model.expectedSource = device;
    }
    int offset = 0;
    int step = 0;
    while (offset < stream.size()) {
        const int want = anyProgress ? plan.at(step++ % plan.size()) : int(stream.size());
        const QByteArray piece = stream.mid(offset, want);
        offset += piece.size();
        response.addRawData(piece);
        model.add(piece);
        compare(response, model, stream);
    }
    // A read that brings nothing must neither complete nor spoil an unfinished answer.
    response.addRawData(QByteArray());
    model.add(QByteArray());
    compare(response, model, stream);
    return 0;
}
