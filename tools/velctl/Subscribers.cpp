// Who would hear an event: the bus daemon's list of all subscriptions.
//
// The daemon writes its match rules as "key='value',..." and keeps one list for each connection. Values that
// velctl looks at (a type, an interface, a member, a path) contain neither quotes nor commas.
#include "Subscribers.h"

#include "ModuleNames.h"

#include <QMap>

namespace velctl {

namespace {

bool matches(const QString& rule, const Event& event) {
    const QMap<QString, QString> wanted = {
        {"type", "signal"}, {"interface", commonInterface()}, {"member", event.member}, {"path", event.path}};
    for (const QString& condition : rule.split(',')) {
        const QString key = condition.section('=', 0, 0);
        const QString value = condition.section('\'', 1, 1);
        if (wanted.contains(key) && wanted.value(key) != value)
            return false;
        // The event comes from this process, so a rule for another sender's does not count.
        if (key == "sender")
            return false;
    }
    return true;
}

} // namespace

bool mayBeHeard(Bus& bus, const Event& event) {
    const QDBusMessage answer = bus.ask("GetAllMatchRules", {}, "org.freedesktop.DBus.Debug.Stats");
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty())
        return true;
    const Value lists = valueOf(answer.arguments().first());
    for (const Value& list : lists.children) {
        if (list.children.at(0).basic.toString() == bus.connection().baseService())
            continue;
        for (const Value& rule : list.children.at(1).children) {
            if (matches(rule.basic.toString(), event))
                return true;
        }
    }
    return false;
}

} // namespace velctl
