// Rules between modules. Each mistake is reported at the value that has to be changed.
#include "ConfigurationRules.h"

#include "Configuration.h"
#include "configuration/ConfigurationReader.h"

#include "bus/BusNames.h"

#include <QHash>
#include <QRegularExpression>

#include <algorithm>

namespace {

const QRegularExpression validName("\\A[A-Za-z_][A-Za-z0-9_]*\\z");
const QRegularExpression nameOption("\\A-*moduleName(=|\\z)");

QString keyPath(int module, const char* key) {
    return JsonDocument::memberPath(JsonDocument::elementPath("modules", module), key);
}

class Rules {
public:
    Rules(const Configuration& configuration, ConfigurationReader& reader)
        : m_modules(configuration.modules), m_reader(reader) {}

    void check() {
        if (m_modules.size() > highestModuleCount)
            m_reader.mistake("modules", QString("there are more than %1").arg(highestModuleCount));
        for (int index = 0; index < m_modules.size(); ++index) {
            checkName(index);
            checkArguments(index);
            checkDataFolder(index);
        }
        for (int index = 0; index < m_modules.size(); ++index)
            checkWaiting(index);
        checkCycles();
    }

private:
    void checkName(int index) {
        const QString& name = m_modules[index].name;
        if (name.isEmpty())
            return; // reported as missing
        const QString path = keyPath(index, "name");
        if (!validName.match(name).hasMatch())
            m_reader.mistake(path, QString("no module can be called '%1': only letters, digits and underscores, not "
                                           "beginning with a digit, make a name on the bus")
                                       .arg(name));
        else if (!vel::bus::isReachable(name))
            m_reader.mistake(path, "is too long for a name on the bus");
        else if (name == "ApplicationManager")
            m_reader.mistake(path, "is the name of the supervisor itself");
        else if (m_indexes.contains(name))
            m_reader.mistake(path, QString("'%1' is the name of modules[%2], too").arg(name).arg(m_indexes[name]));
        else
            m_indexes.insert(name, index);
    }

    void checkArguments(int index) {
        const QStringList& arguments = m_modules[index].arguments;
        for (int position = 0; position < arguments.size(); ++position) {
            if (arguments[position].contains(nameOption))
                m_reader.mistake(JsonDocument::elementPath(keyPath(index, "arguments"), position),
                                 "the supervisor itself tells each module its name");
        }
    }

    // Every folder is looked up, and every folder around it: whatever the number of modules.
    void checkDataFolder(int index) {
        const QString& folder = m_modules[index].dataFolder;
        if (folder.isEmpty())
            return;
        const auto report = [&](const QString& text, int other) {
            m_reader.mistake(keyPath(index, "dataFolder"), text.arg(folder).arg(other));
        };
        bool isInside = false;
        for (QString around = folder; !isInside && !around.isEmpty(); around = parentOf(around)) {
            isInside = m_owners.contains(around);
            if (isInside)
                report("'%1' belongs to modules[%2]", m_owners[around]);
        }
        if (!isInside && m_ownersInside.contains(folder))
            report("'%1' has the folder of modules[%2] in it", m_ownersInside[folder]);
        if (!m_owners.contains(folder))
            m_owners.insert(folder, index);
        for (QString around = parentOf(folder); !around.isEmpty() && !m_ownersInside.contains(around);
             around = parentOf(around))
            m_ownersInside.insert(around, index);
    }

    // The folder around an absolute path; empty around "/".
    static QString parentOf(const QString& path) {
        return path == "/" ? QString() : path.left(std::max<qsizetype>(1, path.lastIndexOf('/')));
    }

    void checkWaiting(int index) {
        const QStringList& waitsFor = m_modules[index].waitsFor;
        QSet<QString> seen;
        for (int position = 0; position < waitsFor.size(); ++position) {
            const QString path = JsonDocument::elementPath(keyPath(index, "waitsFor"), position);
            const QString& name = waitsFor[position];
            if (!m_indexes.contains(name))
                m_reader.mistake(path, QString("there is no module '%1'").arg(name));
            else if (seen.contains(name))
                m_reader.mistake(path, QString("'%1' is named twice").arg(name));
            seen.insert(name);
        }
    }

    // Takes away whoever waits for nobody who is left; whoever remains waits, in the end, for itself or for one who does.
    void checkCycles() {
        QVector<int> waitsForSoMany(m_modules.size());
        QVector<QVector<int>> waiting(m_modules.size()); // by whom they wait for
        QVector<int> free;
        for (const int index : qAsConst(m_indexes)) {
            for (const QString& needed : m_modules[index].waitsFor) {
                if (m_indexes.contains(needed)) {
                    ++waitsForSoMany[index];
                    waiting[m_indexes[needed]] += index;
                }
            }
            if (waitsForSoMany[index] == 0)
                free += index;
        }
        m_isLeft.fill(false, m_modules.size());
        for (const int index : qAsConst(m_indexes))
            m_isLeft[index] = waitsForSoMany[index] > 0;
        while (!free.isEmpty()) {
            for (const int index : waiting[free.takeLast()]) {
                if (--waitsForSoMany[index] == 0) {
                    m_isLeft[index] = false;
                    free += index;
                }
            }
        }
        for (int index = 0; index < m_modules.size(); ++index) {
            if (m_isLeft[index])
                reportCycle(index);
        }
    }

    // Follows the waiting until it comes back to where it was, or to where another cycle was reported.
    void reportCycle(int index) {
        QStringList way;
        for (; index >= 0; index = nextOf(index)) {
            way += m_modules[index].name;
            m_isLeft[index] = false;
        }
        const QStringList& lastWaitsFor = m_modules[m_indexes[way.last()]].waitsFor;
        for (int position = 0; position < way.size(); ++position) {
            if (!lastWaitsFor.contains(way[position]))
                continue;
            way = way.mid(position) + QStringList{way[position]};
            return m_reader.mistake(keyPath(m_indexes[way.first()], "waitsFor"),
                                    "nobody could start first: " + way.join(" waits for "));
        }
    }

    int nextOf(int index) const {
        for (const QString& needed : m_modules[index].waitsFor) {
            const int next = m_indexes.value(needed, -1);
            if (next >= 0 && m_isLeft[next])
                return next;
        }
        return -1;
    }

    const QVector<ModuleConfiguration>& m_modules;
    ConfigurationReader& m_reader;
    QHash<QString, int> m_indexes;      // of the good names
    QHash<QString, int> m_owners;       // of data folders
    QHash<QString, int> m_ownersInside; // of folders that have a data folder in them
    QVector<bool> m_isLeft;             // those that may be in a cycle
};

} // namespace

void checkRules(const Configuration& configuration, ConfigurationReader& reader) {
    Rules(configuration, reader).check();
}
