// The end: one module on request, then the supervisor, who ends the others first.
#include "demo/Acts.h"

#include "demo/Stage.h"

#include <QFile>

namespace {

const QString supervisor = "vel-supervisor";

void stopOne(Stage& stage) {
    stage.scene("One module is stopped; the supervisor takes note");
    Actor& stop = stage.run({"stop", "Media"});
    stage.expect(stop, "Media has ended");
    stage.expect("Media", "stop: the music is off");
    stage.expect(supervisor, "'Media' ended with NORMAL_EXIT");
    stage.expectEnd("Media");
}

void theSupervisorEnds(Stage& stage) {
    stage.scene("The supervisor is told to end: modules end before those they waited for");
    auto& manager = static_cast<ProcessActor&>(stage.actor(supervisor));
    stage.remark("sends SIGTERM to " + supervisor);
    manager.terminate();
    for (const char* name : {"Display", "Playlists", "Tuner"})
        stage.expectEnd(name);
    stage.expectEnd(manager);
    stage.require("the end of Display before the stop of Tuner",
                  manager.indexOfLine("'Display' ended") < manager.indexOfLine("stops 'Tuner'"));
    stage.run({"wait", "--gone", "ApplicationManager"}); // its name is free for the next one
    for (const auto& actor : stage.actors())
        stage.require(actor->role().name + "'s process gone",
                      actor->processId() == 0 || !QFile::exists(QString("/proc/%1").arg(actor->processId())));
}

} // namespace

void playFinale(Stage& stage) {
    stage.act("The end");
    stopOne(stage);
    theSupervisorEnds(stage);
}
