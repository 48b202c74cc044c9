// Rules between modules. Each mistake is reported at the value that has to be changed.
#include "ConfigurationRules.h"

#include "Configuration.h"
#include "ConfigurationReader.h"
#include "Guardian.h"

#include <QRegularExpression>

namespace {

constexpr int longestBusName = 255;

QString keyPath(int module, const char* key) {
    return JsonLines::memberPath(JsonLines::elementPath("modules", module), key);
}

class Rules {
public:
    Rules(const Configuration& configuration, ConfigurationReader& reader)
        : m_modules(configuration.modules), m_reader(reader) {}

    void check() {
        // One slot of the guardian is the data command's.
        if (m_modules.size() >= Guardian::slotCount)
            m_reader.mistake("modules", QString("there are more than %1").arg(Guardian::slotCount - 1));
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
        if (!QRegularExpression("\\A[A-Za-z_][A-Za-z0-9_]*\\z").match(name).hasMatch())
            m_reader.mistake(path, QString("no module can be called '%1': only letters, digits and underscores, not "
                                           "beginning with a digit, make a name on the bus")
                                       .arg(name));
        else if (QString(VEL_SUPERVISOR_PREFIX ".%1Service").arg(name).size() > longestBusName)
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
            if (arguments[position].contains(QRegularExpression("\\A-*moduleName(=|\\z)")))
                m_reader.mistake(JsonLines::elementPath(keyPath(index, "arguments"), position),
                                 "the supervisor itself tells each module its name");
        }
    }

    void checkDataFolder(int index) {
        const QString& folder = m_modules[index].dataFolder;
        for (int other = 0; other < index && !folder.isEmpty(); ++other) {
            const QString& owned = m_modules[other].dataFolder;
            if (!owned.isEmpty() && (folder + '/').startsWith(owned + '/'))
                m_reader.mistake(keyPath(index, "dataFolder"),
                                 QString("'%1' belongs to modules[%2]").arg(folder).arg(other));
            else if (!owned.isEmpty() && (owned + '/').startsWith(folder + '/'))
                m_reader.mistake(keyPath(index, "dataFolder"),
                                 QString("'%1' has the folder of modules[%2] in it").arg(folder).arg(other));
        }
    }

    void checkWaiting(int index) {
        const QStringList& waitsFor = m_modules[index].waitsFor;
        for (int position = 0; position < waitsFor.size(); ++position) {
            const QString path = JsonLines::elementPath(keyPath(index, "waitsFor"), position);
            const QString& name = waitsFor[position];
            if (!m_indexes.contains(name))
                m_reader.mistake(path, QString("there is no module '%1'").arg(name));
            else if (waitsFor.indexOf(name) < position)
                m_reader.mistake(path, QString("'%1' is named twice").arg(name));
        }
    }

    // Takes away whoever waits for nobody who is left; whoever remains waits, in the end, for itself or for one who does.
    void checkCycles() {
        QSet<QString> left;
        for (auto known = m_indexes.cbegin(); known != m_indexes.cend(); ++known)
            left += known.key();
        for (bool isShrinking = true; isShrinking;) {
            isShrinking = false;
            for (const QString& name : left.values()) {
                if (!isWaiting(name, left)) {
                    left -= name;
                    isShrinking = true;
                }
            }
        }
        while (!left.isEmpty())
            reportCycle(left);
    }

    bool isWaiting(const QString& name, const QSet<QString>& others) const { return !nextOf(name, others).isEmpty(); }

    QString nextOf(const QString& name, const QSet<QString>& others) const {
        for (const QString& needed : m_modules[m_indexes[name]].waitsFor) {
            if (others.contains(needed))
                return needed;
        }
        return QString();
    }

    // Follows the waiting until it comes back to where it was.
    void reportCycle(QSet<QString>& left) {
        QString name = *left.cbegin();
        for (const QString& one : qAsConst(left)) // from the same module whatever the order of the set
            name = m_indexes[one] < m_indexes[name] ? one : name;
        QStringList way;
        for (; !name.isEmpty() && !way.contains(name); name = nextOf(name, left))
            way += name;
        left -= QSet<QString>(way.cbegin(), way.cend());
        if (name.isEmpty())
            return; // leads into a cycle that has been reported
        way = way.mid(way.indexOf(name)) + QStringList{name};
        m_reader.mistake(keyPath(m_indexes[name], "waitsFor"), "nobody could start first: " + way.join(" waits for "));
    }

    const QVector<ModuleConfiguration>& m_modules;
    ConfigurationReader& m_reader;
    QMap<QString, int> m_indexes; // of the good names
};

} // namespace

void checkRules(const Configuration& configuration, ConfigurationReader& reader) {
    Rules(configuration, reader).check();
}
