// Entry of the benchmarks that drive the serial port or timers: Qt's I/O and timers want an
// application object, and the driver logs at the level a POS installation runs it (info).

#include "host/logsetup.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    logging::configureConsole(QStringLiteral("info"));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
