// An event of the bus: making one, writing it down, and making it again from what was written.
#pragma once

#include "Output.h"

#include "wire/Appender.h"

#include <QJsonObject>

#include <functional>
#include <vector>

namespace velctl {

/// An argument of an event to be made: `append` appends its value, which is of that type.
struct EventArgument {
    QString name;
    QByteArray type;
    std::function<void(wire::Appender&)> append;
};

EventArgument textArgument(const QString& name, const QString& text);
EventArgument intArgument(const QString& name, int number);

/// An event as the module `publisher` would publish it. Throws what the arguments throw.
wire::Message makeEvent(const QString& publisher, const QString& name, const QString& context,
                        std::vector<EventArgument> arguments);

/// The event of one line of JSON, the same bytes as they were. What is missing is filled in as a module would:
/// `publisher` is whose path it gets then. Throws a wire::Error when the object describes no event.
wire::Message eventFromJson(const QJsonObject& json, const QString& publisher);

/// Writes the JSON of a signal, one line without its end; the time is the one of now. A signal that has not the form
/// of an event has a "body".
void writeEventJson(DBusMessage* signal, const wire::Sink& to);

/// The line for people, with the arguments as `velctl publish` takes them. A text longer than an argument of a command
/// can be is cut.
Row eventLine(DBusMessage* signal);

/// Stands `value` at an argument of the event; false when it has none of that name, or has not the form of an event.
bool findArgument(DBusMessage* signal, const QByteArray& name, DBusMessageIter& value);

/// The text of a value as people write it, cut where it is longer than an argument of a command can be.
QString textOf(DBusMessageIter& value);

/// Whether a message is a signal of the modules' common interface.
bool isEvent(DBusMessage* message);

/// The match rule for the events of a name, or for all with an empty one, from one module or from all.
QString eventRule(const QString& name, const QString& module = QString());

} // namespace velctl
