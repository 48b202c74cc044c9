// What a bridge is told: from the file to the values.
#include "Configuration.h"

#include "Topics.h"

#include "bus/BusNames.h"
#include "configuration/ConfigurationReader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <limits>

namespace {

constexpr int longestFile = 1024 * 1024;
constexpr int plainPort = 1883; // as registered for MQTT
constexpr int tlsPort = 8883;

QString pathOf(const QString& parent, const QString& key) {
    return JsonDocument::memberPath(parent, key);
}

bool isOfThisMachine(const QString& host) {
    return host == "localhost" || host == "::1" || host.startsWith("127.");
}

class FileReader {
public:
    FileReader(ConfigurationReader& reader, Configuration& configuration, const QString& folder)
        : m_reader(reader), m_configuration(configuration), m_folder(folder) {}

    void read() {
        const QJsonObject root = m_reader.root();
        if (!m_reader.isObject("", root, {"machine", "broker", "export", "import", "control", "store", "limits"},
                               {"machine", "broker", "store"}))
            return;
        m_reader.readText("machine", root["machine"], m_configuration.machine);
        if (!m_configuration.machine.isEmpty() && !isMachineName(m_configuration.machine))
            m_reader.mistake("machine", nameRule);
        readBroker(root["broker"]);
        readExport(root["export"]);
        readImports(root["import"]);
        readControl(root["control"]);
        readStore(root["store"]);
        readLimits(root["limits"]);
    }

private:
    void readBroker(const QJsonValue& value) {
        if (!m_reader.isObject("broker", value, {"host", "port", "tls", "user", "passwordFile", "plain"}, {"host"}))
            return;
        const QJsonObject object = value.toObject();
        BrokerConfiguration& broker = m_configuration.broker;
        m_reader.readText("broker.host", object["host"], broker.host);
        m_reader.readText("broker.user", object["user"], broker.user);
        broker.hasTls = object.contains("tls");
        if (broker.hasTls)
            readTls(object["tls"], broker);
        broker.port = broker.hasTls ? tlsPort : plainPort;
        m_reader.readCount("broker.port", object["port"], broker.port, 1, 65535);
        const bool isForced = object["plain"].toBool();
        if (object.contains("plain") && !object["plain"].isBool())
            m_reader.mistake("broker.plain", "must be true or false");
        else if (!broker.hasTls && !isForced && !broker.host.isEmpty() && !isOfThisMachine(broker.host))
            m_reader.mistake("broker",
                             QString("'%1' is another machine: what goes there can be read and changed on the "
                                     "way; give 'tls', or \"plain\": true where that does not matter")
                                 .arg(broker.host));
        readPassword(object["passwordFile"], broker.password);
        if (broker.user.isEmpty() && object.contains("passwordFile"))
            m_reader.mistake("broker.passwordFile", "a password needs a 'user'");
    }

    void readTls(const QJsonValue& value, BrokerConfiguration& broker) {
        const QString path = "broker.tls";
        if (!m_reader.isObject(path, value, {"authority", "certificate", "key"}, {"authority"}))
            return;
        const QJsonObject object = value.toObject();
        readFileName(pathOf(path, "authority"), object["authority"], broker.authority);
        readFileName(pathOf(path, "certificate"), object["certificate"], broker.certificate);
        readFileName(pathOf(path, "key"), object["key"], broker.key);
        if (object.contains("certificate") != object.contains("key"))
            m_reader.mistake(path, "'certificate' and 'key' go together");
    }

    // Its content is a secret: not even a mistake shows it.
    void readPassword(const QJsonValue& value, QString& password) {
        constexpr int longest = 1024;
        QString name;
        readFileName("broker.passwordFile", value, name);
        QFile file(name);
        if (name.isEmpty() || !file.open(QIODevice::ReadOnly))
            return;
        password = QString::fromUtf8(file.readLine(longest)).trimmed();
        if (password.isEmpty())
            m_reader.mistake("broker.passwordFile", "its first line is empty");
    }

    void readFileName(const QString& path, const QJsonValue& value, QString& result) {
        QString text;
        m_reader.readText(path, value, text);
        if (text.isEmpty())
            return;
        const QFileInfo info(QDir(m_folder).filePath(text));
        if (!info.isFile() || !info.isReadable())
            m_reader.mistake(path, QString("there is no file '%1' that can be read").arg(info.filePath()));
        else
            result = info.absoluteFilePath();
    }

    void readExport(const QJsonValue& value) {
        if (value.isUndefined() || !m_reader.isObject("export", value, {"modules", "events"}))
            return;
        const QJsonObject object = value.toObject();
        readModules("export.modules", object["modules"], m_configuration.exportedModules);
        m_configuration.exportedEvents = selectionIn("export.events", object["events"]);
    }

    void readImports(const QJsonValue& value) {
        if (value.isUndefined())
            return;
        if (!value.isObject())
            return m_reader.mistake("import", "must be an object with a key for each machine");
        const QJsonObject machines = value.toObject();
        QMap<QString, QString> owners;
        for (auto machine = machines.begin(); machine != machines.end(); ++machine) {
            const QString path = pathOf("import", machine.key());
            if (!isMachineName(machine.key()))
                m_reader.mistake(path, nameRule);
            else if (machine.key() == m_configuration.machine)
                m_reader.mistake(path, "is this machine itself");
            if (!m_reader.isObject(path, machine.value(), {"modules", "events"}))
                continue;
            const QJsonObject object = machine.value().toObject();
            ImportConfiguration import;
            readModules(pathOf(path, "modules"), object["modules"], import.modules);
            import.events = selectionIn(pathOf(path, "events"), object["events"]);
            for (const QString& module : qAsConst(import.modules)) {
                if (owners.contains(module))
                    m_reader.mistake(pathOf(path, "modules"),
                                     QString("'%1' is imported from '%2', too").arg(module, owners[module]));
                else if (m_configuration.exportedModules.contains(module))
                    m_reader.mistake(pathOf(path, "modules"), QString("'%1' is exported, too").arg(module));
                owners[module] = machine.key();
            }
            m_configuration.imports.insert(machine.key(), import);
        }
    }

    void readModules(const QString& path, const QJsonValue& value, QStringList& modules) {
        m_reader.readTexts(path, value, modules);
        for (const QString& module : qAsConst(modules)) {
            if (!vel::bus::isReachable(module))
                m_reader.mistake(path, QString("'%1' cannot be the name of a module").arg(module));
            else if (module == "Bridge" || modules.count(module) > 1)
                m_reader.mistake(path, module == "Bridge" ? QString("the bridge itself stays on its machine")
                                                          : QString("'%1' is given twice").arg(module));
        }
    }

    Selection selectionIn(const QString& path, const QJsonValue& value) {
        QStringList patterns;
        m_reader.readTexts(path, value, patterns);
        for (const QString& pattern : qAsConst(patterns)) {
            if (!Selection::isPattern(pattern))
                m_reader.mistake(
                    path, QString("'%1' is neither NAME nor MODULE/NAME, with * and ? for characters").arg(pattern));
        }
        return Selection(patterns);
    }

    void readControl(const QJsonValue& value) {
        if (value.isUndefined() || !m_reader.isObject("control", value, {"out", "in"}))
            return;
        m_configuration.controlOut = selectionIn("control.out", value.toObject().value("out"));
        m_configuration.controlIn = selectionIn("control.in", value.toObject().value("in"));
    }

    void readStore(const QJsonValue& value) {
        QString text;
        m_reader.readText("store", value, text);
        if (text.isEmpty())
            return;
        const QFileInfo info(QDir(m_folder).filePath(text));
        const QFileInfo folder(info.absolutePath());
        if (!folder.isDir() || !folder.isWritable() || info.isDir())
            m_reader.mistake("store", QString("cannot be a file that is written, at '%1'").arg(info.filePath()));
        m_configuration.store = info.absoluteFilePath();
    }

    void readLimits(const QJsonValue& value) {
        constexpr int highest = std::numeric_limits<int>::max();
        LimitConfiguration& limits = m_configuration.limits;
        const struct {
            const char* key;
            int* limit;
            int lowest;
            int highest;
        } counts[] = {{"queueEvents", &limits.queueEvents, 10, 10000000},
                      {"queueBytes", &limits.queueBytes, 1024, highest},
                      {"payloadBytes", &limits.payloadBytes, 1024, 64 * 1024 * 1024},
                      {"eventsPerSecond", &limits.eventsPerSecond, 1, highest},
                      {"callsPerSecond", &limits.callsPerSecond, 1, highest},
                      {"pendingCalls", &limits.pendingCalls, 1, 100000}};
        QStringList keys = {"callTime", "awayTime"};
        for (const auto& count : counts)
            keys += count.key;
        if (value.isUndefined() || !m_reader.isObject("limits", value, keys))
            return;
        const QJsonObject object = value.toObject();
        for (const auto& count : counts)
            m_reader.readCount(pathOf("limits", count.key), object[QLatin1String(count.key)], *count.limit,
                               count.lowest, count.highest);
        m_reader.readSeconds("limits.callTime", object["callTime"], limits.callMs);
        m_reader.readSeconds("limits.awayTime", object["awayTime"], limits.awayMs);
    }

    const QString nameRule = "must be letters, digits, '_' and '-', 64 at most: it stands in topics";
    ConfigurationReader& m_reader;
    Configuration& m_configuration;
    const QString m_folder;
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
    ConfigurationReader reader(fileName, text);
    if (reader.mistakes().isEmpty() || !reader.root().isEmpty())
        FileReader(reader, configuration, QFileInfo(fileName).absolutePath()).read();
    mistakes += reader.mistakes();
    return configuration;
}
