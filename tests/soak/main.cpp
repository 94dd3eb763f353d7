// cpibcr-soak [STEPS] [SEED]: the long fault soak. Prints its figures, and on a
// violation the seed, the step and what the device saw; exits 1 then.
#include "soak.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

namespace {

void print(const QString& text)
{
    std::fprintf(stderr, "%s\n", text.toUtf8().constData());
    std::fflush(stderr);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    soak::Options defaults;
    defaults.steps = 50000;
    soak::Options options = soak::Options::fromEnvironment(defaults);
    const QStringList args = app.arguments().mid(1);
    bool ok = true;
    if (args.size() > 2 ||
        (args.size() >= 1 && (options.steps = args.at(0).toInt(&ok), !ok || options.steps < 0)) ||
        (args.size() == 2 && (options.seed = args.at(1).toULongLong(&ok, 0), !ok))) {
        print(QStringLiteral("usage: cpibcr-soak [STEPS] [SEED]"));
        return 2;
    }
    print(QStringLiteral("soak seed %1, %2 steps").arg(options.seed).arg(options.steps));
    soak::Soak soak(options);
    soak.setOutput(print);
    const bool held = soak.run();
    print(soak.figures().toText());
    if (!held) {
        print(soak.failure());
        return 1;
    }
    print(QStringLiteral("soak passed: %1 steps, seed %2").arg(soak.figures().stepsRun).arg(options.seed));
    return 0;
}
