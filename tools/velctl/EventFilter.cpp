// Which events a command looks at.
#include "EventFilter.h"

#include "Event.h"
#include "ModuleNames.h"

#include <algorithm>

namespace velctl {

namespace {

bool isPattern(const QString& name) {
    return name.contains('*') || name.contains('?');
}

} // namespace

EventFilter::EventFilter(const QString& verb, const QStringList& names, const QString& module,
                         const QList<QPair<QString, QString>>& arguments)
    : m_names(names), m_module(module), m_arguments(arguments) {
    if (!module.isEmpty())
        requireValidName(verb + " events of", "a module", module);
    QStringList forms;
    for (QString name : names) {
        QString example = name;
        requireValidName(verb, "an event", isPattern(name) ? example.replace('*', 'x').replace('?', 'x') : name);
        forms += name.replace('*', ".*").replace('?', '.');
    }
    m_pattern.setPattern("\\A(" + forms.join('|') + ")\\z");
}

QStringList EventFilter::rules() const {
    if (m_names.isEmpty() || std::any_of(m_names.begin(), m_names.end(), isPattern))
        return {wire::eventRule(QString(), m_module)};
    QStringList rules;
    for (const QString& name : m_names)
        rules += wire::eventRule(name, m_module);
    return rules;
}

void EventFilter::subscribe(Bus& bus, std::function<void(DBusMessage*)> heard) const {
    bus.subscribe(rules(), [filter = *this, heard = std::move(heard)](DBusMessage* message) {
        if (filter.matches(message))
            heard(message);
    });
}

bool EventFilter::matches(const QString& name, const QString& path) const {
    return (m_module.isEmpty() || path == pathOf(m_module)) && (m_names.isEmpty() || m_pattern.match(name).hasMatch());
}

bool EventFilter::matches(DBusMessage* message) const {
    if (!wire::isEvent(message) || !matches(QString::fromUtf8(dbus_message_get_member(message)),
                                            QString::fromUtf8(dbus_message_get_path(message))))
        return false;
    return std::all_of(m_arguments.begin(), m_arguments.end(), [message](const QPair<QString, QString>& argument) {
        DBusMessageIter value;
        return wire::findArgument(message, argument.first.toUtf8(), value) && textOf(value) == argument.second;
    });
}

} // namespace velctl
