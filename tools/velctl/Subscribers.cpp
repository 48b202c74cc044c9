// Who would hear an event: the bus daemon's list of all subscriptions.
//
// The daemon writes its match rules as "key='value',..." and keeps one list for each connection. Values that
// velctl looks at (a type, an interface, a member, a path) contain neither quotes nor commas.
#include "Subscribers.h"

#include "ModuleNames.h"

#include <QMap>

namespace velctl {

namespace {

bool matches(const QString& rule, DBusMessage* event) {
    const QMap<QString, QString> wanted = {{"type", "signal"},
                                           {"interface", commonInterface()},
                                           {"member", dbus_message_get_member(event)},
                                           {"path", dbus_message_get_path(event)}};
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

bool mayBeHeard(Bus& bus, DBusMessage* event) {
    const wire::Message answer = bus.ask("GetAllMatchRules", QString(), "org.freedesktop.DBus.Debug.Stats");
    DBusMessageIter lists, entry;
    if (!dbus_message_has_signature(answer.get(), "a{sas}") || !dbus_message_iter_init(answer.get(), &lists))
        return true;
    dbus_message_iter_recurse(&lists, &entry);
    for (; dbus_message_iter_get_arg_type(&entry) == DBUS_TYPE_DICT_ENTRY; dbus_message_iter_next(&entry)) {
        DBusMessageIter list, rule;
        const char* text = nullptr;
        dbus_message_iter_recurse(&entry, &list);
        dbus_message_iter_get_basic(&list, &text);
        if (bus.uniqueName() == text)
            continue;
        dbus_message_iter_next(&list);
        dbus_message_iter_recurse(&list, &rule);
        for (; dbus_message_iter_get_arg_type(&rule) == DBUS_TYPE_STRING; dbus_message_iter_next(&rule)) {
            dbus_message_iter_get_basic(&rule, &text);
            if (matches(QString::fromUtf8(text), event))
                return true;
        }
    }
    return false;
}

} // namespace velctl
