// Act three: a person at a terminal works on a system that the reference supervisor runs.
#include "demo/Acts.h"

#include "demo/Stage.h"

#include <VelExitCodes>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

const QString supervisor = "vel-supervisor";

constexpr int done = 0; // velctl's statuses
constexpr int moduleAnsweredWithError = 5;

/// Found in the saved copy, or the save has saved something else.
const QByteArray trackList = "Harbour Lights\nNight Train\n";

void writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush())
        throw Missing{QString("'%1' written in full: %2").arg(path, file.errorString())};
}

QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void makeFolder(const QString& path) {
    if (!QDir().mkpath(path))
        throw Missing{QString("a folder '%1'").arg(path)};
}

QJsonObject module(const QString& name, const QJsonObject& more = QJsonObject()) {
    QJsonObject entry = more;
    entry["name"] = name;
    entry["command"] = QDir(QCoreApplication::applicationDirPath()).filePath(name);
    // All of them write to the supervisor's output: there, each line says whose it is.
    entry["environment"] = QJsonObject{{"QT_MESSAGE_PATTERN", name + ": " + Actor::linePattern()}};
    return entry;
}

QString writeConfiguration(Stage& stage) {
    const QString data = stage.filePath("lists");
    const QString saved = stage.filePath("saved");
    makeFolder(data);
    makeFolder(saved);
    writeFile(QDir(data).filePath("tracks"), trackList);

    const QJsonObject configuration{
        {"modules", QJsonArray{module("Tuner"), module("Playlists", {{"dataFolder", data}}),
                               module("Media", {{"waitsFor", QJsonArray{"Tuner", "Playlists"}}}),
                               module("Display", {{"waitsFor", QJsonArray{"Tuner"}}})}},
        {"save", QJsonObject{{"command", "sh"}, {"arguments", QJsonArray{"-c", "cp -R \"$@\" saved", "save"}}}}};
    const QString path = stage.filePath("platform.json");
    writeFile(path, QJsonDocument(configuration).toJson());
    return path;
}

/// Types a command at the operator's terminal; goes on at once.
QString type(Stage& stage, const QStringList& words, int expectedStatus = done) {
    // The table of all processes has room for a command or a called method.
    const QString label = "velctl " + (words.first() == "call" ? words.at(2) : words.first());
    Role role{label, "velctl", words, expectedStatus};
    role.isModule = false;
    stage.start(role);
    return label;
}

void theSupervisorStarts(Stage& stage) {
    stage.scene("A supervisor that knows from a file what to start, and in which order");
    const QString configuration = writeConfiguration(stage);
    stage.start({supervisor, supervisor, {configuration}, VelNormalExit});
    for (const char* name : {"Tuner", "Playlists", "Media", "Display"})
        stage.expect(supervisor, QString("'%1' is up").arg(name));
    const Actor& speaker = stage.actor(supervisor);
    for (const char* name : {"Tuner", "Playlists"})
        stage.require(QString("%1 up before Media starts").arg(name),
                      speaker.indexOfLine(QString("'%1' is up").arg(name)) < speaker.indexOfLine("starts 'Media'"));
}

/// The processes by module, as a person reads them off the table.
QMap<QString, int> list(Stage& stage) {
    stage.scene("What runs?");
    const QString label = type(stage, {"list"});
    stage.expectEnd(label);
    QMap<QString, int> processes;
    for (const QString& line : stage.actor(label).process().lines()) {
        static const QRegularExpression row("^(\\w+) +(\\d+) +running ");
        const QRegularExpressionMatch match = row.match(line);
        if (match.hasMatch())
            processes[match.captured(1)] = match.captured(2).toInt();
    }
    for (const char* name : {"ApplicationManager", "Tuner", "Playlists", "Media", "Display"})
        stage.require(QString("%1 in the list, and running").arg(name), processes.contains(name));
    stage.require("nobody else in the list", processes.size() == 5);
    return processes;
}

void watch(Stage& stage) {
    stage.scene("One terminal watches an event, the other makes a module publish it");
    const QString watcher = type(stage, {"watch", "station_changed", "--count", "1"});
    stage.expect(watcher, "watching station_changed");
    const QString caller = type(stage, {"call", "Display", "show", "2"});
    stage.expect(caller, "text Radio Harbour");
    stage.expectEnd(caller);
    stage.expect(watcher, "Radio Harbour");
    stage.expectEnd(watcher);
    stage.expect(supervisor, "Display: callback call: the volume is 50");
}

void logLevel(Stage& stage) {
    stage.scene("One module says more");
    const QString label = type(stage, {"loglevel", "debug", "--facility", "Media"});
    stage.expectEnd(label);
    for (const char* name : {"ApplicationManager", "Tuner", "Playlists", "Media", "Display"})
        stage.require(QString("%1 among those that have heard it").arg(name),
                      stage.actor(label).indexOfLine(name) >= 0);
    stage.call("Media", "setVolume", {60});
    stage.expect(supervisor, "Media: debug: the mixer goes to 60 of 100");
}

void refusal(Stage& stage) {
    stage.scene("A refused call says why, and has a status of its own");
    const QString label = type(stage, {"call", "Tuner", "tune", "9"}, moduleAnsweredWithError);
    stage.expect(label, "there is no preset 9");
    stage.expectEnd(label);
}

bool isFrozen(int process) {
    const QByteArray text = contentOf(QString("/proc/%1/stat").arg(process));
    return text.mid(text.lastIndexOf(')') + 2, 1) == "T"; // the program's name before may hold anything
}

void save(Stage& stage, const QMap<QString, int>& processes) {
    stage.scene("A save by the configured command: Playlists is frozen while its folder is copied");
    const QString label = type(stage, {"call", "ApplicationManager", "save"});
    stage.expect(supervisor, "Playlists: pre-save: 0 tracks");
    stage.expect(supervisor, "save: done, Playlists took part");
    stage.expect(label, "Playlists");
    stage.expectEnd(label);
    stage.require("the data in the copy", contentOf(stage.filePath("saved/lists/tracks")) == trackList);
    for (auto one = processes.begin(); one != processes.end(); ++one)
        stage.require(one.key() + " not frozen after the save", !isFrozen(one.value()));
    stage.remark("finds the copy complete, and nobody frozen");
}

void theSupervisorsView(Stage& stage, const QMap<QString, int>& processes) {
    stage.scene("What the supervisor knows");
    const QString label = type(stage, {"call", "ApplicationManager", "listModules"});
    stage.expectEnd(label);
    for (const char* name : {"Tuner", "Playlists", "Media", "Display"})
        stage.require(QString("%1 up in the same process as before").arg(name),
                      stage.actor(label).indexOfLine(QString("%1: up, process %2").arg(name).arg(processes[name])) >=
                          0);
}

void stopOne(Stage& stage) {
    stage.scene("One module is stopped; the supervisor takes note");
    const QString label = type(stage, {"stop", "Media"});
    stage.expect(supervisor, "Media: stop: the music is off");
    stage.expect(label, "Media has ended");
    stage.expectEnd(label);
    stage.expect(supervisor, "'Media' ended with NORMAL_EXIT");
}

void theSupervisorEnds(Stage& stage, const QMap<QString, int>& processes) {
    stage.scene("The supervisor is told to end: modules end before those they waited for");
    stage.remark("sends SIGTERM to " + supervisor);
    stage.actor(supervisor).process().terminate();
    for (const char* name : {"Display", "Playlists", "Tuner"})
        stage.expect(supervisor, QString("'%1' ended with NORMAL_EXIT").arg(name));
    stage.expectEnd(supervisor);
    const Actor& speaker = stage.actor(supervisor);
    stage.require("the end of Display before the stop of Tuner",
                  speaker.indexOfLine("'Display' ended") < speaker.indexOfLine("stops 'Tuner'"));
    for (auto one = processes.begin(); one != processes.end(); ++one)
        stage.require(one.key() + "'s process gone", !QFile::exists(QString("/proc/%1").arg(one.value())));
}

} // namespace

void playActThree(Stage& stage) {
    stage.act("Act three: the operator's side");
    theSupervisorStarts(stage);
    const QMap<QString, int> processes = list(stage);
    watch(stage);
    logLevel(stage);
    refusal(stage);
    save(stage, processes);
    theSupervisorsView(stage, processes);
    stopOne(stage);
    theSupervisorEnds(stage, processes);
}
