// Act one: modules start, talk, refuse, fail and end.
#include "demo/Acts.h"

#include "demo/Stage.h"
#include "demo/System.h"
#include "demo/VelctlStatus.h"

#include <VelExitCodes>

#include <csignal>

namespace {

const QString supervisor = "vel-supervisor";

void aloneOnTheBus(Stage& stage) {
    stage.scene("A module without a supervisor: asked to turn off, it stops itself");
    Actor& media = stage.start({"Media (alone)", VelNormalExit}, {"Media"});
    stage.expect(media, "run: ready to play");
    stage.run({"wait", "--running", "Media"});
    stage.run({"call", "Media", "turnOff"});
    stage.expect(media, "warning: Invalid interface: is module 'ApplicationManager' started ?");
    stage.expect(media, "stop: the music is off");
    stage.expectEnd(media);
}

void everybodyStarts(Stage& stage) {
    stage.scene("A supervisor knows from a file what to start, and in which order; two modules cannot start");
    prepareSystem(stage);
    const QString configuration = stage.filePath(system_files::configuration);
    Actor& manager = stage.startSupervisor({supervisor, {configuration}}, systemRoles());
    for (const Role& role : systemRoles()) {
        const bool fails = role.expectedStatus == VelDeployError || role.expectedStatus == VelInitError;
        stage.expect(manager, QString(fails ? "error: '%1' ended with" : "'%1' is up").arg(role.name));
    }
    for (const char* needed : {"Tuner", "Playlists"})
        stage.require(QString("%1 up before Media starts").arg(needed),
                      manager.indexOfLine(QString("'%1' is up").arg(needed)) < manager.indexOfLine("starts 'Media'"));
    stage.expect("Tuner", "run: the aerial is up");
    stage.expect("Media", "check: all there");
    stage.expect("Media", "run: ready to play");
    stage.expect("Display", "check: no layout yet");
    stage.expect("Display", "deploy: the layout is made");
    stage.expect("Display", "run: the screen is on");
    stage.expect("NoDeploy", "deploy: failing");
    stage.expectEnd("NoDeploy");
    stage.expect("NoInit", "error: FSM Exception catched in init method : the disk is full");
    stage.expectEnd("NoInit");
}

void callsAndAnEvent(Stage& stage) {
    stage.scene("Modules call in three ways; Tuner publishes an event that three modules and one terminal hear");
    Actor& watcher = stage.type({"watch", "station_changed", "--count", "1"});
    stage.expect(watcher, "watching station_changed");
    Actor& caller = stage.run({"call", "Display", "show", "2"});
    stage.expect(caller, "text Radio Harbour");
    stage.expect(watcher, "Radio Harbour");
    stage.expectEnd(watcher);
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
    Actor& caller = stage.run({"call", "Display", "show", "9"}, velctl_status::answeredWithError);
    stage.expect(caller, "there is no preset 9");
    stage.expect("Display", "blocking call refused: there is no preset 9");
}

void failuresOfRunningModules(Stage& stage) {
    stage.scene("A failed run ends a module no sooner, but with its status; a failed stop ends it, too");
    stage.expect("NoRun", "run: failing");
    Actor& first = stage.run({"call", "ApplicationManager", "stopModule", "NoRun"});
    stage.expect(first, "'NoRun' ended with RUN_ERROR [4]");
    stage.expect("NoRun", "debug: stopModuleEvent for module NoRun in RUN state");
    stage.expect("NoRun", "stop: fine");
    stage.expectEnd("NoRun");
    stage.expect("NoStop", "run: fine");
    Actor& second = stage.run({"call", "ApplicationManager", "stopModule", "NoStop"});
    stage.expect(second, "'NoStop' ended with STOP_ERROR [5]");
    stage.expect("NoStop", "stop: failing");
    stage.expectEnd("NoStop");
}

void thePresentation(Stage& stage) {
    stage.scene("The presentation is loaded, stopped, and loaded again");
    stage.run({"publish", "presentationLoaded"});
    stage.expect("Display", "presentation: now PRESENTATION_LOADED");
    stage.run({"publish", "presentation_closed"});
    stage.expect("Display", "presentation: now PRESENTATION_STOP");
    stage.run({"publish", "presentationLoaded"});
    stage.expect("Display", "presentation: now PRESENTATION_LOADED");
}

void anEndOnRequest(Stage& stage) {
    stage.scene("A module under another name; asked to turn off, it has the supervisor stop it");
    Actor& kitchen = stage.start({"KitchenMedia", VelNormalExit}, {"Media", {"--moduleName=KitchenMedia"}});
    stage.expect(kitchen, "run: ready to play");
    stage.run({"call", "KitchenMedia", "turnOff"});
    stage.expect(supervisor, "asks 'KitchenMedia' to stop");
    stage.expect(kitchen, "stop: the music is off");
    stage.expectEnd(kitchen);
}

void notStartedAtAll(Stage& stage) {
    stage.scene("A second Media is refused; --help only explains");
    Actor& second = stage.start({"Media (second)", VelAlreadyRunning}, {"Media"});
    stage.expect(second, "warning: Media is already running: Stopping new instance.");
    stage.expectEnd(second);
    Actor& help = stage.start({"Tuner (help)", VelNormalExit}, {"Tuner", {"--help"}});
    stage.expect(help, "--moduleName=");
    stage.expectEnd(help);
}

void aCrash(Stage& stage) {
    stage.scene("A module is killed, and the supervisor starts it again");
    const qint64 process = stage.actor("Media").processId();
    stage.remark(QString("kills Media, process %1").arg(process));
    stage.require("a process to kill", process > 0 && kill(static_cast<pid_t>(process), SIGKILL) == 0);
    stage.expect(supervisor, "warning: 'Media' ended with Crashed [1], by signal 9");
    stage.expect(supervisor, "'Media' is up");
    stage.expect("Media", "run: ready to play");
    stage.require("another process", stage.actor("Media").processId() != process);
}

} // namespace

void playActOne(Stage& stage) {
    stage.act("Act one: starting, talking, failing");
    aloneOnTheBus(stage);
    everybodyStarts(stage);
    callsAndAnEvent(stage);
    aRefusedCall(stage);
    failuresOfRunningModules(stage);
    thePresentation(stage);
    anEndOnRequest(stage);
    notStartedAtAll(stage);
    aCrash(stage);
}
