// The table at the demo's end: every process with its expected and its actual status.
#include "demo/Results.h"

#include "demo/Stage.h"

#include <algorithm>

namespace {

QString row(const QString& module, const QString& expected, const QString& actual, const QString& verdict) {
    return QString("  %1%2%3%4")
        .arg(module.leftJustified(22), expected.leftJustified(24), actual.leftJustified(24), verdict);
}

} // namespace

bool printResults(Timeline& timeline, const Stage& stage) {
    bool allAsExpected = true;
    timeline.heading("HOW THEY ENDED");
    timeline.text(QString());
    timeline.text(row("process", "expected", "actual", QString()).trimmed().prepend("  "), Timeline::Tone::Faint);
    for (const auto& actor : stage.actors()) {
        const bool asExpected = actor->endedAsExpected();
        timeline.text(row(actor->role().name, actor->role().textOf(actor->role().expectedStatus), actor->statusText(),
                          asExpected ? "as expected" : "WRONG"),
                      asExpected ? Timeline::Tone::Plain : Timeline::Tone::Bad);
        allAsExpected = allAsExpected && asExpected;
    }
    const auto& commands = stage.commands();
    const auto wrong = std::count_if(commands.begin(), commands.end(),
                                     [](const auto& command) { return !command->endedAsExpected(); });
    timeline.text(row(QString("%1 of velctl").arg(commands.size()), "each its own", "each its own",
                      wrong == 0 ? "as expected" : QString("%1 WRONG").arg(wrong)),
                  wrong == 0 ? Timeline::Tone::Plain : Timeline::Tone::Bad);
    timeline.text(QString());
    return allAsExpected && wrong == 0;
}
