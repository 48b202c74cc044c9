// What the supervisor knows of the modules in its configuration.
#include "Supervisor.h"

#include "ModuleNames.h"
#include "ModuleReport.h"

#include "wire/Json.h"

#include <QJsonArray>

namespace velctl {

const QString supervisorName = "ApplicationManager";

QMap<QString, QJsonObject> supervisedModules(Bus& bus, const QDeadlineTimer& end) {
    const QString owner = bus.ownerOf(supervisorName);
    if (owner.isEmpty())
        return {};
    const wire::Message answer = bus.call(callTo(owner, pathOf(supervisorName), commonInterface(), "modules"), end);
    DBusMessageIter value;
    if (!answer || !dbus_message_has_signature(answer.get(), "aa{sv}") || !dbus_message_iter_init(answer.get(), &value))
        return {};
    QMap<QString, QJsonObject> modules;
    for (const QJsonValue& dictionary : wire::jsonOf(value).toArray()) {
        const QJsonObject module = propertiesIn(dictionary.toArray());
        modules.insert(module.value("ModuleName").toString(), module);
    }
    return modules;
}

QString whyDown(const QJsonObject& supervised) {
    QStringList parts;
    if (const QString silence = supervised.value("Silence").toString(); !silence.isEmpty())
        parts += silence;
    if (const QString reason = supervised.value("Reason").toString(); !reason.isEmpty())
        parts += reason;
    QStringList awaited;
    for (const QJsonValue& name : supervised.value("WaitsFor").toArray())
        awaited += name.toString();
    if (!awaited.isEmpty())
        parts += "waits for " + awaited.join(", ");
    if (supervised.contains("NextStart"))
        parts += QString("starts in %1 s").arg(supervised.value("NextStart").toDouble(), 0, 'f', 0);
    return parts.join("; ");
}

} // namespace velctl
