// An event on its way into a message, written from where its parts lie.
//
// A VelEvent is a QObject with a map of type names; building both for every published event is wasted work.
#pragma once

#include "events/VelEvent.h"

#include <QDBusArgument>
#include <QMetaType>

namespace vel {

/// What an event consists of, all of it somebody else's.
struct EventParts {
    const QString& name;
    const QString& context;
    const QVariantMap& arguments;
    const QMap<QString, QString>* types; ///< null: each argument's type is named as it is written
};

/// The one argument of a signal that is sent before its parts go out of scope: it becomes bytes while it is sent. On the
/// bus it is what a VelEvent is.
class OutgoingEvent {
public:
    OutgoingEvent() = default; ///< an empty event: from it Qt learns the form
    explicit OutgoingEvent(const EventParts& parts) : m_parts(&parts) {}

    const EventParts* parts() const { return m_parts; }

private:
    const EventParts* m_parts = nullptr;
};

/// Writes the parts in an event's form on the bus.
void writeEvent(QDBusArgument& argument, const EventParts& event);

QDBusArgument& operator<<(QDBusArgument& argument, const OutgoingEvent& event);

/// Qt does not register a type without it; nothing is received as an OutgoingEvent, and nothing is read.
const QDBusArgument& operator>>(const QDBusArgument& argument, OutgoingEvent& event);

} // namespace vel

Q_DECLARE_TYPEINFO(vel::OutgoingEvent, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(vel::OutgoingEvent)
