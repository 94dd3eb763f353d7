// Reading a line recording: a 100 MB trace, made here, parsed and taken apart as `cpibcr trace
// --summary` does (every chunk parsed, every exchange assembled by the driver's frame code, the
// summary figures), on one thread. Bytes per second are bytes of trace text.
//
// The trace is a long polling session, as a recycler left running for days records: most
// exchanges are a request and its echo and answer in one read; one in 50 answers comes in two
// reads, one in 200 is BUSY and repeated, one in 500 is lost and repeated, one in 300 has a
// frame between other stations in front of it, one in 1000 a few bytes of line noise.

#include "support/frames.h"
#include "trace/traceanalysis.h"

#include <benchmark/benchmark.h>

#include <QByteArray>

#include <random>

namespace {

using testsupport::frame;

const qint64 traceBytes = 100LL * 1000 * 1000;

const QByteArray& bigTrace()
{
    static const QByteArray text = [] {
        std::mt19937 random(20261123);
        trace::Header header;
        header.recorder = QStringLiteral("bench/1");
        header.port = QStringLiteral("/dev/ttyUSB0");
        header.baudRate = 115200;
        header.dataBits = 8;
        header.parity = header.stopBits = header.flow = QStringLiteral("none");
        header.started = QDateTime::currentDateTimeUtc();
        QByteArray t = trace::headerLine(header);
        t.reserve(int(traceBytes + 4096));
        const QList<QByteArray> requests{frame(55, 1, 123), frame(55, 1, 82),
                                         frame(55, 1, 119, QByteArray(1, 2)), frame(55, 1, 254)};
        const QList<QByteArray> answers{
            frame(1, 55, 0, QByteArray::fromHex("1000")), frame(1, 55, 0, QByteArray(32, 3)),
            frame(1, 55, 0, QByteArray::fromHex("52553530304100FA")), frame(1, 55, 0)};
        qint64 us = 1000;
        qint64 n = 0;
        while (t.size() < traceBytes) {
            const int kind = int(n++ % 4);
            const QByteArray& request = requests.at(kind);
            QByteArray answer = answers.at(kind);
            const unsigned roll = random() % 3000;
            if (roll < 6) {
                // lost, sent again after the host's wait and pause
                trace::appendChunkLine(t, {us, trace::Direction::Written, request});
                trace::appendChunkLine(t, {us + 90, trace::Direction::Read, request});
                us += 1200000;
            } else if (roll < 21) {
                trace::appendChunkLine(t, {us, trace::Direction::Written, request});
                trace::appendChunkLine(t, {us + 2100, trace::Direction::Read, request + frame(1, 55, 6)});
                us += 1002500;
            }
            QByteArray before;
            if (roll >= 21 && roll < 31)
                before = frame(2, 3, 0, QByteArray::fromHex("0102"));
            else if (roll >= 31 && roll < 34)
                before = QByteArray(1, '\xFE');
            trace::appendChunkLine(t, {us, trace::Direction::Written, request});
            if (roll % 50 == 49) {
                trace::appendChunkLine(
                    t, {us + 2000, trace::Direction::Read, request + before + answer.left(3)});
                trace::appendChunkLine(t, {us + 2900, trace::Direction::Read, answer.mid(3)});
            } else {
                trace::appendChunkLine(t, {us + 2000 + qint64(random() % 400), trace::Direction::Read,
                                           request + before + answer});
            }
            us += 200000;
        }
        return t;
    }();
    return text;
}

void BM_ReadTrace(benchmark::State& state)
{
    const QByteArray& text = bigTrace();
    qint64 exchanges = 0;
    for (auto _ : state) {
        trace::Reader reader(text);
        trace::Analyzer analyzer;
        trace::Record record;
        while (reader.next(&record) == trace::Reader::Ok)
            analyzer.add(record);
        const trace::Summary summary = analyzer.finish();
        exchanges = summary.exchanges;
        benchmark::DoNotOptimize(summary);
    }
    state.SetBytesProcessed(qint64(state.iterations()) * text.size());
    state.counters["exchanges"] = double(exchanges);
    state.counters["trace_MB"] = double(text.size()) / 1e6;
}
BENCHMARK(BM_ReadTrace)->Unit(benchmark::kMillisecond)->Iterations(3);

// The format alone: every line parsed, nothing assembled.
void BM_ParseTrace(benchmark::State& state)
{
    const QByteArray& text = bigTrace();
    for (auto _ : state) {
        trace::Reader reader(text);
        trace::Record record;
        qint64 records = 0;
        while (reader.next(&record) == trace::Reader::Ok)
            ++records;
        benchmark::DoNotOptimize(records);
    }
    state.SetBytesProcessed(qint64(state.iterations()) * text.size());
}
BENCHMARK(BM_ParseTrace)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

BENCHMARK_MAIN();
