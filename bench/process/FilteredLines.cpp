// A debug line that the level holds back.
#include "process/Counted.h"

#include "log/GuardedLog.h"

#include <QDebug>
#include <QLoggingCategory>

namespace {

Q_LOGGING_CATEGORY(category, "bench.filtered", QtWarningMsg)

const QString text = QStringLiteral("text");

void velLibraryLine(benchmark::State& state) {
    const allocations::Counted counted(state);
    for (auto _ : state)
        vel::logDebug([] { return QStringLiteral("the text is %1").arg(text); });
}
BENCHMARK(velLibraryLine);

void velPlainLine(benchmark::State& state) {
    const allocations::Counted counted(state);
    for (auto _ : state)
        logger(QStringLiteral(""))->debug("the text is text");
}
BENCHMARK(velPlainLine);

void qtLine(benchmark::State& state) {
    const allocations::Counted counted(state);
    for (auto _ : state)
        qCDebug(category) << "the text is" << text;
}
BENCHMARK(qtLine);

} // namespace
