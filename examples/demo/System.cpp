// The system that the supervisor runs: what it starts, in which order, and how it copies data.
#include "demo/System.h"

#include "demo/Missing.h"
#include "demo/Stage.h"
#include "demo/SupervisedActor.h"

#include <VelExitCodes>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

struct Member {
    Role role;
    QString program;
    QJsonObject more = {}; ///< keys of the configuration, besides name, command and environment
    QMap<QString, QString> environment = {};
};

std::vector<Member> members() {
    const auto faulty = [](const QString& name, const QString& step, int status) {
        return Member{{name, status}, "Faulty", {{"arguments", QJsonArray{"--fail=" + step}}}};
    };
    std::vector<Member> all{
        {{"Tuner", VelNormalExit}, "Tuner", {{"dataFolder", "presets"}}},
        {{"Playlists", VelNormalExit}, "Playlists", {{"dataFolder", "lists"}}},
        {{"Media", VelNormalExit},
         "Media",
         {{"waitsFor", QJsonArray{"Tuner", "Playlists"}}, {"restart", QJsonObject{{"delay", 0.05}}}}},
        {{"Display", VelNormalExit}, "Display", {{"waitsFor", QJsonArray{"Tuner"}}}},
        faulty("NoDeploy", "deploy", VelDeployError),
        faulty("NoInit", "init", VelInitError),
        faulty("NoRun", "run", VelRunError),
        faulty("NoStop", "stop", VelStopError),
    };
    all.at(6).environment = {{"VEL_LOG_LEVEL", "7"}}; // to see in which state the stop finds it
    return all;
}

QJsonObject entryOf(const Member& member) {
    QMap<QString, QString> variables = SupervisedActor::environment(member.role.name);
    for (auto one = member.environment.cbegin(); one != member.environment.cend(); ++one)
        variables[one.key()] = one.value();
    QJsonObject environment;
    for (auto one = variables.cbegin(); one != variables.cend(); ++one)
        environment[one.key()] = one.value();

    QJsonObject entry = member.more;
    entry["name"] = member.role.name;
    entry["command"] = QDir(QCoreApplication::applicationDirPath()).filePath(member.program);
    entry["environment"] = environment;
    return entry;
}

QJsonObject shell(const QString& script) {
    return {{"command", "sh"}, {"arguments", QJsonArray{"-ec", script, "copy"}}}; // the folders follow
}

} // namespace

void prepareSystem(const Stage& stage) {
    for (const char* folder : {"presets", "lists", "saved"}) {
        if (!QDir().mkpath(stage.filePath(folder)))
            throw Missing{QString("a folder '%1'").arg(stage.filePath(folder))};
    }
    writeFile(stage.filePath(system_files::tracks), "Harbour Lights\nNight Train\n");

    QJsonArray modules;
    for (const Member& member : members())
        modules.append(entryOf(member));
    // The pipe is open when the line is written: from then on its end is seen.
    const QString save =
        "cp -R \"$@\" saved; if [ -p gate ]; then exec 3<gate; echo the folders are copied; cat <&3; fi";
    const QString restore = "for folder; do cp -R \"saved/$(basename \"$folder\")/.\" \"$folder\"; done";
    const QJsonObject configuration{{"modules", modules}, {"save", shell(save)}, {"restore", shell(restore)}};
    writeFile(stage.filePath(system_files::configuration), QJsonDocument(configuration).toJson());
}

std::vector<Role> systemRoles() {
    std::vector<Role> roles;
    for (const Member& member : members())
        roles.push_back(member.role);
    return roles;
}

void writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush())
        throw Missing{QString("'%1' written in full: %2").arg(path, file.errorString())};
}

QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
