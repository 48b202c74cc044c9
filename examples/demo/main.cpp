// The demo: real module processes on a private bus play what this system does, and everything is checked.
//
// Exit status: 0 when everything was as expected, 1 when something was missing, 128 and the signal's number when it
// was interrupted.
#include "demo/Acts.h"
#include "demo/Interruption.h"
#include "demo/Missing.h"
#include "demo/Results.h"
#include "demo/Stage.h"
#include "demo/Timeline.h"

#include <QCoreApplication>

namespace {

// Exceptions are for what ends the play; the table is printed in any case.
bool play(Stage& stage) {
    try {
        playActOne(stage);
        playActTwo(stage);
        playFinale(stage);
        return true;
    } catch (const Missing& missing) {
        stage.timeline().event("(demo)", "still missing: " + missing.what, Timeline::Tone::Bad);
        return false;
    }
}

int perform(Timeline& timeline, const Interruption& interruption) {
    timeline.heading("Vel: modules on a message bus of their own");
    Stage stage(timeline, interruption);
    const bool playedToTheEnd = play(stage);
    const bool endedAsExpected = printResults(timeline, stage);
    const bool succeeded = playedToTheEnd && endedAsExpected;
    timeline.text(QString("%1 observations in %2 s: %3")
                      .arg(stage.observationCount())
                      .arg(timeline.now(), succeeded ? "all as expected" : "something is missing, see above"),
                  succeeded ? Timeline::Tone::Good : Timeline::Tone::Bad);
    return succeeded ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    Timeline timeline;
    const Interruption interruption;
    try {
        return perform(timeline, interruption);
    } catch (const Missing& missing) {
        timeline.text("cannot play the demo without " + missing.what, Timeline::Tone::Bad);
        return 1;
    } catch (const Interrupted&) {
        timeline.text("interrupted; every module has been ended", Timeline::Tone::Doubtful);
        return 128 + interruption.signalNumber();
    }
}
