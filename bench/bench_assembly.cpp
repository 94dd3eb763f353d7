// Answer assembly throughput: streams of 1 MiB and 4 MiB fed to CcTalk::Response in pieces of at
// most 16 bytes, as the bus device feeds what it reads.
//   clean    exchanges, each the echo of a request and the device's answer; every exchange
//            starts a new response, as every command does
//   garbage  one continuous stream, three quarters of it uniformly random line noise with
//            the exchanges in between; a new response starts after each completed one. Noise
//            is often taken for a frame (a length byte from 123 up announces a 128- to 255-byte
//            frame, which passes the checksum by definition); the frames taken are counted
//   flood    one response fed a stream that never holds a frame: every position announces a
//            frame whose checksum then fails, the most work resynchronisation can be given

#include "cctalk/package.h"
#include "support/frames.h"

#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QVector>

#include <random>

namespace {

using testsupport::frame;

const int pieceSize = 16;
const qint64 MiB = 1 << 20;

QByteArray randomBytes(std::mt19937& random, int size)
{
    QByteArray bytes(size, '\0');
    for (char& c : bytes)
        c = char(random() & 0xFF);
    return bytes;
}

struct Exchange
{
    QByteArray bytes;
    int answerSize = 0;
};

Exchange randomExchange(std::mt19937& random)
{
    // The device answers with 0 to 32 data bytes: acknowledgements, counters, coin identifiers.
    const QByteArray answer = randomBytes(random, int(random() % 33));
    const QByteArray request =
        frame(55, 1, quint8(random() % 200 + 1), randomBytes(random, int(random() % 5)));
    return Exchange{request + frame(1, 55, 0, answer), answer.size()};
}

// A piece as a read hands it over: a new byte array each time, over bytes of the stream.
QByteArray piece(const QByteArray& stream, int at, int end)
{
    return QByteArray::fromRawData(stream.constData() + at, qMin(pieceSize, end - at));
}

void BM_AssemblyClean(benchmark::State& state)
{
    std::mt19937 random(20240601);
    QByteArray stream;
    QVector<int> ends;
    QVector<int> answerSizes;
    while (stream.size() < state.range(0)) {
        const Exchange e = randomExchange(random);
        stream += e.bytes;
        ends << stream.size();
        answerSizes << e.answerSize;
    }
    qint64 completed = 0;
    for (auto _ : state) {
        completed = 0;
        int at = 0;
        for (int i = 0; i < ends.size(); ++i) {
            CcTalk::Response response;
            for (; at < ends.at(i); at += pieceSize)
                response.addRawData(piece(stream, at, ends.at(i)));
            at = ends.at(i);
            if (response.isValid() && response.getSource() == 55 &&
                response.getData().size() == answerSizes.at(i))
                ++completed;
        }
        benchmark::DoNotOptimize(completed);
    }
    if (completed != ends.size())
        state.SkipWithError("an exchange did not end with its answer");
    state.SetBytesProcessed(state.iterations() * stream.size());
    state.counters["frames"] = double(completed);
}

void BM_AssemblyGarbage(benchmark::State& state)
{
    std::mt19937 random(20240602);
    QByteArray stream;
    qint64 exchanges = 0;
    while (stream.size() < state.range(0)) {
        const Exchange e = randomExchange(random);
        stream += randomBytes(random, 3 * e.bytes.size()) + e.bytes;
        ++exchanges;
    }
    qint64 taken = 0;
    for (auto _ : state) {
        taken = 0;
        CcTalk::Response response;
        for (int at = 0; at < stream.size(); at += pieceSize) {
            response.addRawData(piece(stream, at, stream.size()));
            if (response.isValid()) {
                ++taken;
                response = CcTalk::Response();
            }
        }
        benchmark::DoNotOptimize(taken);
    }
    state.SetBytesProcessed(state.iterations() * stream.size());
    state.counters["exchanges"] = double(exchanges);
    state.counters["frames"] = double(taken);
}

void BM_AssemblyFlood(benchmark::State& state)
{
    // Length byte 0x70 announces 117 bytes, whose sum is never 0 modulo 256.
    const QByteArray stream(int(state.range(0)), char(0x70));
    bool valid = false;
    for (auto _ : state) {
        CcTalk::Response response;
        for (int at = 0; at < stream.size(); at += pieceSize)
            response.addRawData(piece(stream, at, stream.size()));
        valid = valid || response.isValid();
        benchmark::DoNotOptimize(response);
    }
    if (valid)
        state.SkipWithError("the flood was taken for an answer");
    state.SetBytesProcessed(state.iterations() * stream.size());
}

} // namespace

BENCHMARK(BM_AssemblyClean)->Arg(MiB)->Arg(4 * MiB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AssemblyGarbage)->Arg(MiB)->Arg(4 * MiB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AssemblyFlood)->Arg(MiB)->Arg(4 * MiB)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
