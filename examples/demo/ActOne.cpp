// Act one: modules start, talk, refuse, fail and end.
#include "demo/Acts.h"

#include "demo/Stage.h"

#include <VelExitCodes>

namespace {

const QString supervisor = "ApplicationManager";

void aloneOnTheBus(Stage& stage) {
    stage.scene("A module without a supervisor: asked to turn off, it stops itself");
    stage.start({"Media (alone)", "Media", {}, VelNormalExit});
    stage.expect("Media (alone)", "run: ready to play");
    stage.call("Media", "turnOff");
    stage.expect("Media (alone)", "warning: Invalid interface: is module 'ApplicationManager' started ?");
    stage.expect("Media (alone)", "stop: the music is off");
    stage.expectEnd("Media (alone)");
}

void everybodyStarts(Stage& stage) {
    stage.scene("The supervisor and four modules start; only Display has something to deploy first");
    stage.start({supervisor, supervisor, {}, VelNormalExit});
    stage.expect(supervisor, "run: supervising");
    for (const char* module : {"Tuner", "Media", "Playlists", "Display"})
        stage.start({module, module, {}, VelNormalExit});
    stage.expect("Tuner", "run: the aerial is up");
    stage.expect("Media", "check: all there");
    stage.expect("Media", "run: ready to play");
    stage.expect("Display", "check: no layout yet");
    stage.expect("Display", "deploy: the layout is made");
    stage.expect("Display", "run: the screen is on");
    for (const char* module : {"ApplicationManager", "Tuner", "Media", "Playlists", "Display"})
        stage.expect(supervisor, QString(module) + " is up");
}

void callsAndAnEvent(Stage& stage) {
    stage.scene("Modules call in three ways; Tuner publishes an event that three modules hear");
    stage.call("Display", "show", {2});
    stage.expect("Display", "blocking call: the station is Radio Harbour");
    stage.expect("Display", "callback call: the volume is 50");
    stage.expect("Display", "station_changed: QStringList genres = jazz, talk");
    stage.expect("Display", "station_changed: double megahertz = 98.5");
    stage.expect("Display", "station_changed: QString name = Radio Harbour");
    stage.expect("Display", "station_changed: int preset = 2");
    stage.expect("Display", "station_changed: bool stereo = true");
    stage.expect("Tuner", "my own event came back: station_changed");
    stage.expect("Media", "pausing: the radio plays jazz and talk");
    stage.expect("Media", "asynchronous call: the radio's strength is 72");
}

void aRefusedCall(Stage& stage) {
    stage.scene("A call that cannot be served is answered with an error, and its text travels back");
    const QString refusal = stage.callRefused("Display", "show", {9});
    stage.require("the text of Tuner's refusal", refusal == "there is no preset 9");
    stage.expect("Display", "blocking call refused: there is no preset 9");
}

void thePresentation(Stage& stage) {
    stage.scene("The presentation is loaded, stopped, and loaded again");
    stage.call(supervisor, "loadPresentation");
    stage.expect("Display", "presentation: now PRESENTATION_LOADED");
    stage.call(supervisor, "closePresentation");
    stage.expect("Display", "presentation: now PRESENTATION_STOP");
    stage.call(supervisor, "loadPresentation");
    stage.expect("Display", "presentation: now PRESENTATION_LOADED");
}

void anEndOnRequest(Stage& stage) {
    stage.scene("A module under another name; asked to turn off, it has the supervisor stop it");
    stage.start({"KitchenMedia", "Media", {"--moduleName=KitchenMedia"}, VelNormalExit});
    stage.expect("KitchenMedia", "run: ready to play");
    stage.expect(supervisor, "KitchenMedia is up");
    stage.call("KitchenMedia", "turnOff");
    stage.expect(supervisor, "stopping KitchenMedia");
    stage.expect("KitchenMedia", "stop: the music is off");
    stage.expectEnd("KitchenMedia");
}

void notStartedAtAll(Stage& stage) {
    stage.scene("A second Media is refused; --help only explains");
    stage.start({"Media (second)", "Media", {}, VelAlreadyRunning});
    stage.expect("Media (second)", "warning: Media is already running: Stopping new instance.");
    stage.expectEnd("Media (second)");
    stage.start({"Tuner (help)", "Tuner", {"--help"}, VelNormalExit});
    stage.expect("Tuner (help)", "--moduleName=");
    stage.expectEnd("Tuner (help)");
}

Role faulty(const QString& label, const QString& step, int expectedStatus) {
    return {label, "Faulty", {"--moduleName=" + label, "--fail=" + step}, expectedStatus};
}

void failures(Stage& stage) {
    stage.scene("Modules fail in each step; a failed run ends a module no sooner, but with its status");
    stage.start(faulty("NoDeploy", "deploy", VelDeployError));
    stage.expect("NoDeploy", "deploy: failing");
    stage.expectEnd("NoDeploy");
    stage.start(faulty("NoInit", "init", VelInitError));
    stage.expect("NoInit", "error: FSM Exception catched in init method : the disk is full");
    stage.expectEnd("NoInit");
    Role noRun = faulty("NoRun", "run", VelRunError);
    noRun.environment = {{"VEL_LOG_LEVEL", "7"}}; // to see in which state the stop finds it
    stage.start(noRun);
    stage.expect("NoRun", "run: failing");
    stage.expect(supervisor, "NoRun is up");
    stage.call(supervisor, "stopModule", {"NoRun"});
    stage.expect("NoRun", "debug: stopModuleEvent for module NoRun in RUN state");
    stage.expect("NoRun", "stop: fine");
    stage.expectEnd("NoRun");
    stage.start(faulty("NoStop", "stop", VelStopError));
    stage.expect("NoStop", "run: fine");
    stage.expect(supervisor, "NoStop is up");
    stage.call(supervisor, "stopModule", {"NoStop"});
    stage.expect("NoStop", "stop: failing");
    stage.expectEnd("NoStop");
}

} // namespace

void playActOne(Stage& stage) {
    stage.act("Act one: starting, talking, failing");
    aloneOnTheBus(stage);
    everybodyStarts(stage);
    callsAndAnEvent(stage);
    aRefusedCall(stage);
    thePresentation(stage);
    anEndOnRequest(stage);
    notStartedAtAll(stage);
    failures(stage);
}
