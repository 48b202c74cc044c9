// Act two: the maintenance of modules that run.
#include "demo/Acts.h"

#include "demo/SlowFile.h"
#include "demo/Stage.h"

#include <VelExitCodes>

#include <QFile>

#include <algorithm>

namespace {

const QString supervisor = "ApplicationManager";

void setLogLevel(Stage& stage, const QString& module, int level) {
    stage.call(supervisor, "setLogLevel", {module, level});
}

void logLevel(Stage& stage) {
    stage.scene("One module's log level goes up and down: the same call says more, then less");
    setLogLevel(stage, "Media", 7);
    stage.call("Media", "setVolume", {60});
    stage.expect("Media", "debug: the mixer goes to 60 of 100");
    stage.expect("Media", "the volume is 60");
    setLogLevel(stage, "Media", 6);
    stage.call("Media", "setVolume", {70});
    stage.expect("Media", "the volume is 70"); // written after the debug line, if that was written at all
    stage.require("no debug line at level 6", stage.actor("Media").indexOfLine("mixer goes to 70") == -1);
}

void resets(Stage& stage) {
    stage.scene("Everybody resets to the defaults, Display with a reboot to come; then to the factory");
    stage.call(supervisor, "resetToDefault");
    stage.expect(supervisor, "Display is at its defaults after a reboot");
    for (const char* module : {"ApplicationManager", "Tuner", "Media", "Playlists"})
        stage.expect(supervisor, QString(module) + " is at its defaults");
    stage.call(supervisor, "resetToFactory");
    for (const char* module : {"ApplicationManager", "Tuner", "Media", "Playlists", "Display"})
        stage.expect(supervisor, QString(module) + " is in its factory state");
}

void save(Stage& stage) {
    stage.scene("A save: a thread of Playlists is at work, so Playlists freezes later than Tuner");
    setLogLevel(stage, "Playlists", 7); // to see the critical section and the steps of the save
    SlowFile file(stage.filePath("list"));
    stage.call("Playlists", "importFile", {file.path()});
    stage.expect("Playlists", "debug: Entering critical section");
    stage.expect("Playlists", "import: reading");

    stage.call(supervisor, "prepareSave", {QStringList{"Playlists", "Tuner"}});
    stage.expect(supervisor, "Tuner is ready");
    stage.expectFrozen("Tuner");
    stage.expect("Playlists", "debug: Preparing for Save operations");
    stage.expect("Playlists", "debug: Entering critical section"); // the save's, which has to wait
    const QString refusal = stage.callRefused(supervisor, "resumeModules", {});
    stage.require("the supervisor waiting for Playlists", refusal == "Playlists is not stopped yet");
    stage.expect(supervisor, "error: VelException catch in VelApplication: Playlists is not stopped yet");

    stage.remark("lets the import come to its end");
    file.finish("Harbour Lights\nNight Train\n");
    stage.expect("Playlists", "import: done, 2 tracks");
    stage.expect("Playlists", "pre-save: 2 tracks"); // all of them: the save waited
    stage.expect(supervisor, "Playlists is ready");
    stage.expectFrozen("Playlists");
    stage.remark("could save the data now: nobody changes it");

    stage.call(supervisor, "resumeModules");
    stage.expect("Playlists", "debug: ...Leaving pause mode");
    setLogLevel(stage, "Playlists", 6);
    stage.call("Display", "show", {1});
    stage.expect("Display", "blocking call: the station is City Voice");
    stage.expect("Display", "callback call: the volume is");
    stage.expect("Media", "asynchronous call: the radio's strength is 72");
}

void restore(Stage& stage) {
    stage.scene("A restore: Playlists freezes at once, and takes the data over when it goes on");
    stage.call(supervisor, "prepareRestore", {QStringList{"Playlists"}});
    stage.expect(supervisor, "Playlists is ready");
    stage.expectFrozen("Playlists");
    stage.call(supervisor, "resumeModules");
    stage.expect("Playlists", "post-restore: the lists are read again");
}

QList<QByteArray> linesOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QList<QByteArray>();
}

// The C library may crash when another thread allocates at the moment in which tracing ends, and the bus thread does
// just after it has handed over the event that ends it. Here the module takes that event in while it waits for its
// critical section, and handles it after the save: the bus thread has long been idle then.
void memoryTracing(Stage& stage) {
    stage.scene("Memory tracing in one module, from before a save to its end");
    const QString lists = "TracedLists";
    const QString trace = stage.filePath("trace");
    QFile(trace).open(QIODevice::WriteOnly); // there is a file to watch from the beginning
    stage.remark("takes the C library's debug version along: without it nothing is traced");
    stage.start({lists,
                 "Playlists",
                 {"--moduleName=" + lists},
                 VelNormalExit,
                 {{"LD_PRELOAD", "libc_malloc_debug.so.0"}, {"MALLOC_TRACE", trace}}});
    stage.expect(supervisor, lists + " is up");
    setLogLevel(stage, lists, 7);
    stage.call(supervisor, "traceMemory", {lists, true});
    stage.expect(lists, "debug: Activate mtrace");

    SlowFile file(stage.filePath("traced list"));
    stage.call(lists, "importFile", {file.path()});
    stage.expect(lists, "debug: Entering critical section");
    stage.expect(lists, "import: reading");
    stage.call(supervisor, "prepareSave", {QStringList{lists}});
    stage.expect(lists, "debug: Entering critical section");
    stage.call(supervisor, "traceMemory", {lists, false});
    file.finish("Morning Mist\n");
    stage.expectFrozen(lists);
    stage.call(supervisor, "resumeModules");
    stage.expect(lists, "debug: Deactivate mtrace");

    stage.expectThat(
        "the end of the memory trace", [&] { return linesOf(trace).contains("= End"); }, trace);
    const QList<QByteArray> lines = linesOf(trace);
    const auto calls =
        std::count_if(lines.begin(), lines.end(), [](const QByteArray& line) { return line.startsWith('@'); });
    stage.require("traced allocations", calls > 0);
    stage.remark(QString("counts %1 allocations and releases in the trace").arg(calls));
    stage.call(supervisor, "stopModule", {lists});
    stage.expectEnd(lists);
}

void genericCalls(Stage& stage) {
    stage.scene("A console learns from a module what its methods return, and prints the answers");
    stage.start({"Console (number)", "Console", {"--call=Tuner.strength"}, VelNormalExit});
    stage.expect("Console (number)", "Tuner.strength returns int: 72");
    stage.expectEnd("Console (number)");
    stage.start({"Console (map)", "Console", {"--call=Tuner.reception"}, VelNormalExit});
    stage.expect("Console (map)", "Tuner.reception returns a map of QString to QVariant");
    stage.expect("Console (map)", "noise = 0.25");
    stage.expect("Console (map)", "strength = 72");
    stage.expectEnd("Console (map)");
}

} // namespace

void playActTwo(Stage& stage) {
    stage.act("Act two: maintenance while everybody runs");
    logLevel(stage);
    resets(stage);
    save(stage);
    restore(stage);
    if (VEL_ALLOCATOR_CAN_BE_TRACED)
        memoryTracing(stage);
    genericCalls(stage);
}
