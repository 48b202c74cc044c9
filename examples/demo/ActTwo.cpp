// Act two: the maintenance of modules that run, from the operator's terminal.
#include "demo/Acts.h"

#include "demo/SlowFile.h"
#include "demo/Stage.h"
#include "demo/System.h"
#include "demo/VelctlStatus.h"

#include <VelExitCodes>

#include <algorithm>
#include <csignal>

namespace {

const QString supervisor = "vel-supervisor";

const QStringList running{"ApplicationManager", "Tuner", "Media", "Playlists", "Display"};

void everybody(Stage& stage) {
    stage.scene("What runs?");
    Actor& list = stage.run({"list"});
    for (const QString& name : running)
        stage.expect(list, name + ' ');
    Actor& view = stage.run({"call", "ApplicationManager", "listModules"});
    for (const char* name : {"Tuner", "Media", "Playlists", "Display"})
        stage.require(QString("%1 up in its process, as the supervisor sees it").arg(name),
                      view.indexOfLine(QString("%1: up, process %2").arg(name).arg(stage.actor(name).processId())) >=
                          0);
}

void logLevel(Stage& stage) {
    stage.scene("One module's log level goes up and down: the same call says more, then less");
    Actor& up = stage.run({"loglevel", "debug", "--facility", "Media"});
    for (const QString& name : running)
        stage.expect(up, name);
    stage.run({"call", "Media", "setVolume", "60"});
    stage.expect("Media", "debug: the mixer goes to 60 of 100");
    stage.expect("Media", "the volume is 60");
    stage.run({"loglevel", "info", "--facility", "Media"});
    stage.run({"call", "Media", "setVolume", "70"});
    stage.expect("Media", "the volume is 70"); // written after the debug line, if that was written at all
    stage.require("no debug line at level 6", stage.actor("Media").indexOfLine("mixer goes to 70") == -1);
}

void resets(Stage& stage) {
    stage.scene("Everybody resets to the defaults, Display with a reboot to come; then to the factory");
    Actor& toDefault = stage.run({"reset", "default"});
    Actor& toFactory = stage.run({"reset", "factory"});
    stage.expect(toDefault, "wants a reboot");
    for (Actor* reset : {&toDefault, &toFactory}) {
        for (const QString& name : running)
            stage.require(name + " among those that were reset",
                          reset->lines().filter(name).filter("done").size() == 1);
    }
}

void save(Stage& stage) {
    stage.scene("A save: a thread of Playlists is at work, so Playlists freezes later than Tuner");
    stage.run(
        {"loglevel", "debug", "--facility", "Playlists"}); // shows the critical section, and the steps of the save
    SlowFile file(stage.filePath("list"));
    SlowFile gate(stage.filePath(system_files::gate));
    stage.run({"call", "Playlists", "importFile", file.path()});
    stage.expect("Playlists", "debug: Entering critical section");
    stage.expect("Playlists", "import: reading");

    Actor& watcher = stage.type({"watch", "stop_save_restore_OK", "--count", "2"});
    stage.expect(watcher, "watching stop_save_restore_OK");
    Actor& saving = stage.type({"call", "ApplicationManager", "save", "Tuner Playlists"});
    stage.expect(supervisor, "save: freezes Tuner, Playlists");
    stage.expect(watcher, "Tuner");
    stage.expect("Playlists", "debug: Preparing for Save operations");
    stage.expect("Playlists", "debug: Entering critical section"); // the save's, which has to wait
    stage.require("no answer of Playlists yet", !watcher.hasEnded());

    stage.remark("lets the import come to its end");
    file.finish("Harbour Lights\nNight Train\n");
    stage.expect("Playlists", "import: done, 2 tracks");
    stage.expect("Playlists", "pre-save: 2 tracks"); // all of them: the save waited
    stage.expect(watcher, "Playlists");
    stage.expectEnd(watcher);
    stage.expect(supervisor, "the folders are copied");

    stage.scene("While the data is copied nobody changes it");
    for (const char* name : {"Tuner", "Playlists"})
        stage.require(QString("%1 frozen").arg(name), stage.actor(name).isFrozen());
    Actor& list = stage.run({"list"});
    for (const char* name : {"Tuner", "Playlists"})
        stage.require(QString("%1 told to be saved").arg(name),
                      list.lines().filter(name).filter(" saved ").size() == 1);
    stage.run({"call", "Tuner", "strength"}, velctl_status::notRunning);
    gate.finish("");
    stage.expect(supervisor, "save: done, Tuner, Playlists took part");
    stage.expect(saving, "Tuner");
    stage.expect(saving, "Playlists");
    stage.expectEnd(saving);

    stage.scene("After the save everybody goes on");
    stage.expect("Playlists", "debug: ...Leaving pause mode");
    stage.require("the data in the copy",
                  contentOf(stage.filePath(system_files::savedTracks)) == "Harbour Lights\nNight Train\n");
    stage.run({"loglevel", "info", "--facility", "Playlists"});
    stage.run({"call", "Display", "show", "1"});
    stage.expect("Display", "blocking call: the station is City Voice");
    stage.expect("Display", "callback call: the volume is");
    stage.expect("Media", "asynchronous call: the radio's strength is 72");
}

void restore(Stage& stage) {
    stage.scene("A restore brings lost data back; Playlists takes it over when it goes on");
    writeFile(stage.filePath(system_files::tracks), "");
    stage.run({"call", "ApplicationManager", "restore", "Playlists"});
    stage.expect(supervisor, "restore: done, Playlists took part");
    stage.expect("Playlists", "post-restore: the lists are read again");
    stage.require("the data back in place",
                  contentOf(stage.filePath(system_files::tracks)) == "Harbour Lights\nNight Train\n");
}

QList<QByteArray> linesOf(const QString& path) {
    return contentOf(path).split('\n');
}

// The C library may crash when another thread allocates at the moment in which tracing ends, and the bus thread does
// just after it has handed over the event that ends it. Here the module takes that event in while it waits for its
// critical section, and handles it after a freeze: the bus thread has long been idle then. That is why the supervisor has
// no part in this: it looks after a module that goes on, and keeps its bus thread busy.
void memoryTracing(Stage& stage) {
    stage.scene("Memory tracing in one module, which the operator starts with what that needs");
    Actor& refusal = stage.run({"mtrace", "on", "Tuner"}, velctl_status::failed);
    stage.expect(refusal, "tracing is on and writes nothing"); // it was started without
    const QString name = "TracedLists";
    const QString trace = stage.filePath("trace");
    writeFile(trace, QByteArray()); // there is a file to watch from the beginning
    ProcessActor& lists = stage.start(
        {name, VelNormalExit},
        {"Playlists", {"--moduleName=" + name}, {{"LD_PRELOAD", "libc_malloc_debug.so.0"}, {"MALLOC_TRACE", trace}}});
    stage.run({"wait", "--running", name});
    stage.run({"loglevel", "debug", "--facility", name});
    stage.run({"mtrace", "on", name});
    stage.expect(lists, "debug: Activate mtrace");

    SlowFile file(stage.filePath("traced list"));
    stage.run({"call", name, "importFile", file.path()});
    stage.expect(lists, "debug: Entering critical section");
    stage.expect(lists, "import: reading");
    stage.run({"publish", "prepare_save_restore", "ModulesPidsList=" + name, "Save=true"});
    stage.expect(lists, "debug: Entering critical section");
    stage.run({"publish", "mtrace_off", "module=" + name});
    file.finish("Morning Mist\n");
    stage.expectFrozen(lists);
    stage.remark("lets it go on");
    stage.require("a process to resume", kill(static_cast<pid_t>(lists.processId()), SIGCONT) == 0);
    stage.expect(lists, "debug: Deactivate mtrace");

    stage.expectThat(
        "the end of the memory trace", [&] { return linesOf(trace).contains("= End"); }, trace);
    const QList<QByteArray> lines = linesOf(trace);
    const auto calls =
        std::count_if(lines.begin(), lines.end(), [](const QByteArray& line) { return line.startsWith('@'); });
    stage.require("traced allocations", calls > 0);
    stage.remark(QString("counts %1 allocations and releases in the trace").arg(calls));
    stage.run({"stop", name});
    stage.expectEnd(lists);
}

void genericCalls(Stage& stage) {
    stage.scene("A console learns from a module what its methods return, and prints the answers");
    Actor& number = stage.start({"Console (number)", VelNormalExit}, {"Console", {"--call=Tuner.strength"}});
    stage.expect(number, "Tuner.strength returns int: 72");
    stage.expectEnd(number);
    Actor& map = stage.start({"Console (map)", VelNormalExit}, {"Console", {"--call=Tuner.reception"}});
    stage.expect(map, "Tuner.reception returns a map of QString to QVariant");
    stage.expect(map, "noise = 0.25");
    stage.expect(map, "strength = 72");
    stage.expectEnd(map);
}

} // namespace

void playActTwo(Stage& stage) {
    stage.act("Act two: maintenance while everybody runs");
    everybody(stage);
    logLevel(stage);
    resets(stage);
    save(stage);
    restore(stage);
    if (VEL_ALLOCATOR_CAN_BE_TRACED)
        memoryTracing(stage);
    genericCalls(stage);
}
