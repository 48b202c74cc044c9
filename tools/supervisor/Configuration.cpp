// From the file to the values, with what can be said about each value alone.
#include "Configuration.h"

#include "ConfigurationRules.h"
#include "configuration/ConfigurationReader.h"

#include <VelExitCodes>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QStandardPaths>

namespace {

const QStringList otherCauses = {"signal", "slowStart", "failedStart", "unresponsive"};
constexpr int highestStatus = 255;
constexpr int longestFile = 16 * 1024 * 1024;

QString pathOf(const QString& parent, const char* key) {
    return JsonDocument::memberPath(parent, key);
}

QString statusByName(const QString& name) {
    for (int status = 0; status <= highestStatus; ++status) {
        if (getExitCodeInString(status).startsWith(name + ' '))
            return QString::number(status);
    }
    return QString();
}

/// Reads one configuration; its members say which key means what.
class FileReader {
public:
    FileReader(ConfigurationReader& reader, Configuration& configuration)
        : m_reader(reader), m_configuration(configuration) {}

    void read() {
        const QJsonObject root = m_reader.root();
        if (!m_reader.isObject("", root, {"modules", "save", "restore", "answerLimit", "launch", "launcher"},
                               {"modules"}))
            return;
        m_reader.readSeconds("answerLimit", root["answerLimit"], m_configuration.answerLimitMs);
        readLaunch("launch", root["launch"], m_forksByDefault);
        readLauncher("launcher", root["launcher"]);
        readCommand("save", root["save"], m_configuration.save);
        readCommand("restore", root["restore"], m_configuration.restore);
        const QJsonArray modules = root["modules"].toArray();
        if (modules.isEmpty())
            m_reader.mistake("modules", "must be an array of at least one module");
        for (int index = 0; index < modules.size(); ++index) {
            ModuleConfiguration module;
            readModule(JsonDocument::elementPath("modules", index), modules.at(index), module);
            m_configuration.modules += module; // a wrong one too: the paths of the others count on their index
        }
    }

private:
    void readModule(const QString& path, const QJsonValue& value, ModuleConfiguration& module) {
        const QStringList keys = {"name",      "command", "arguments", "environment", "waitsFor", "startLimit",
                                  "stopLimit", "restart", "alive",     "dataFolder",  "launch"};
        if (!m_reader.isObject(path, value, keys, {"name", "command"}) && !value.isObject())
            return;
        const QJsonObject object = value.toObject();
        m_reader.readText(pathOf(path, "name"), object["name"], module.name);
        readProgram(pathOf(path, "command"), object["command"], module.program);
        m_reader.readTexts(pathOf(path, "arguments"), object["arguments"], module.arguments);
        m_reader.readVariables(pathOf(path, "environment"), object["environment"], module.environment);
        m_reader.readTexts(pathOf(path, "waitsFor"), object["waitsFor"], module.waitsFor);
        m_reader.readSeconds(pathOf(path, "startLimit"), object["startLimit"], module.startLimitMs);
        m_reader.readSeconds(pathOf(path, "stopLimit"), object["stopLimit"], module.stopLimitMs);
        if (object.contains("restart"))
            readRestart(pathOf(path, "restart"), object["restart"], module.restart);
        readAlive(pathOf(path, "alive"), object["alive"], module.alive);
        readDataFolder(pathOf(path, "dataFolder"), object["dataFolder"], module.dataFolder);
        module.isForked = m_forksByDefault;
        readLaunch(pathOf(path, "launch"), object["launch"], module.isForked);
    }

    void readLaunch(const QString& path, const QJsonValue& value, bool& forks) {
        if (value.isUndefined())
            return;
        if (value != "fork" && value != "exec")
            return m_reader.mistake(path, "must be \"fork\" or \"exec\"");
        forks = value == "fork";
    }

    void readLauncher(const QString& path, const QJsonValue& value) {
        if (!value.isUndefined() && m_reader.isObject(path, value, {"libraries"}))
            m_reader.readTexts(pathOf(path, "libraries"), value.toObject()["libraries"],
                               m_configuration.launcherLibraries);
    }

    void readRestart(const QString& path, const QJsonValue& value, RestartPolicy& policy) {
        if (!m_reader.isObject(path, value, {"on", "attempts", "delay", "longestDelay", "steady"}))
            return;
        const QJsonObject object = value.toObject();
        if (object.contains("on"))
            readCauses(pathOf(path, "on"), object["on"], policy.causes);
        m_reader.readCount(pathOf(path, "attempts"), object["attempts"], policy.attempts);
        m_reader.readSeconds(pathOf(path, "delay"), object["delay"], policy.firstDelayMs);
        m_reader.readSeconds(pathOf(path, "longestDelay"), object["longestDelay"], policy.longestDelayMs);
        m_reader.readSeconds(pathOf(path, "steady"), object["steady"], policy.steadyMs);
        if (policy.longestDelayMs < policy.firstDelayMs)
            m_reader.mistake(path, "'longestDelay' is shorter than 'delay'");
    }

    void readAlive(const QString& path, const QJsonValue& value, AliveConfiguration& alive) {
        if (value.isUndefined() || !m_reader.isObject(path, value, {"every", "limit", "dump"}))
            return;
        const QJsonObject object = value.toObject();
        alive.everyMs = 5000;
        m_reader.readSeconds(pathOf(path, "every"), object["every"], alive.everyMs);
        m_reader.readSeconds(pathOf(path, "limit"), object["limit"], alive.limitMs);
        alive.dump.limitMs = 60000;
        readCommand(pathOf(path, "dump"), object["dump"], alive.dump);
    }

    void readCauses(const QString& path, const QJsonValue& value, QSet<QString>& causes) {
        if (!value.isArray())
            return m_reader.mistake(path, "must be an array");
        causes.clear();
        const QJsonArray array = value.toArray();
        for (int index = 0; index < array.size(); ++index) {
            const QString cause = causeOf(array.at(index));
            if (cause.isEmpty())
                m_reader.mistake(JsonDocument::elementPath(path, index),
                                 "must be an exit status, as a number from 0 to 255 or by name, or \"" +
                                     otherCauses.join("\", \"") + '"');
            causes += cause;
        }
    }

    static QString causeOf(const QJsonValue& value) {
        const int status = value.toInt(-1); // -1 for a number with decimals, too
        if (status >= 0 && status <= highestStatus)
            return QString::number(status);
        const QString text = value.toString();
        return otherCauses.contains(text) ? text : statusByName(text);
    }

    void readCommand(const QString& path, const QJsonValue& value, CommandConfiguration& command) {
        if (value.isUndefined() || !m_reader.isObject(path, value, {"command", "arguments", "limit"}, {"command"}))
            return;
        const QJsonObject object = value.toObject();
        readProgram(pathOf(path, "command"), object["command"], command.program);
        m_reader.readTexts(pathOf(path, "arguments"), object["arguments"], command.arguments);
        m_reader.readSeconds(pathOf(path, "limit"), object["limit"], command.limitMs);
    }

    // With a slash: a path, from the file's folder on. Without: beside the file, else where programs are.
    void readProgram(const QString& path, const QJsonValue& value, QString& program) {
        QString command;
        m_reader.readText(path, value, command);
        if (command.isEmpty())
            return;
        const QFileInfo beside(QDir(m_configuration.folder).filePath(command));
        if (beside.isFile() && beside.isExecutable())
            program = beside.absoluteFilePath();
        else if (!command.contains('/'))
            program = QStandardPaths::findExecutable(command);
        if (program.isEmpty())
            m_reader.mistake(path, QString("there is no program '%1'").arg(command));
    }

    void readDataFolder(const QString& path, const QJsonValue& value, QString& folder) {
        QString text;
        m_reader.readText(path, value, text);
        if (text.isEmpty())
            return;
        const QFileInfo info(QDir(m_configuration.folder).filePath(text));
        if (info.isDir())
            folder = info.canonicalFilePath(); // so that two names of one folder are seen to be one
        else
            m_reader.mistake(path, QString("there is no folder '%1'").arg(info.filePath()));
    }

    ConfigurationReader& m_reader;
    Configuration& m_configuration;
    bool m_forksByDefault = false;
};

} // namespace

Configuration Configuration::read(const QString& fileName, QStringList& mistakes) {
    Configuration configuration;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        mistakes += QString("cannot read '%1': %2; nothing was started").arg(fileName, file.errorString());
        return configuration;
    }
    const QByteArray text = file.read(longestFile + 1); // not all: it may have no end
    if (text.size() > longestFile) {
        mistakes +=
            QString("cannot read '%1': it is longer than %2 bytes; nothing was started").arg(fileName).arg(longestFile);
        return configuration;
    }
    configuration.folder = QFileInfo(fileName).absolutePath();
    ConfigurationReader reader(fileName, text);
    if (reader.mistakes().isEmpty() || !reader.root().isEmpty()) {
        FileReader(reader, configuration).read();
        checkRules(configuration, reader);
    }
    mistakes += reader.mistakes();
    return configuration;
}
