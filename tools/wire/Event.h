// An event of the bus: making one, writing it down, and making it again from what was written.
#pragma once

#include "wire/Appender.h"

#include <QJsonObject>

#include <functional>
#include <vector>

namespace wire {

/// An argument of an event to be made: `append` appends its value, which is of that type.
struct EventArgument {
    QString name;
    QByteArray type;
    std::function<void(Appender&)> append;
};

EventArgument textArgument(const QString& name, const QString& text);
EventArgument intArgument(const QString& name, int number);

/// An event as the module `publisher` would publish it. Throws what the arguments throw.
Message makeEvent(const QString& publisher, const QString& name, const QString& context,
                  std::vector<EventArgument> arguments);

/// The event of one line of JSON, the same bytes as they were. What is missing is filled in as a module would:
/// `publisher` is whose path it gets then. Throws a Error when the object describes no event.
Message eventFromJson(const QJsonObject& json, const QString& publisher);

/// Writes the JSON of a signal, one line without its end; the time is the one of now. A signal that has not the form
/// of an event has a "body".
void writeEventJson(DBusMessage* signal, const Sink& to);

/// Whether a signal carries one structure of an event's form. The two functions below ask for that.
bool hasEventForm(DBusMessage* signal);

/// Places in the structure of an event.
enum EventField { Name, Context, Count, Types, Arguments };

/// That place; what is there is read with libdbus.
DBusMessageIter fieldOf(DBusMessage* event, EventField field);

/// Calls `use` with each argument's name and value until it answers false.
void forEachArgument(DBusMessage* event, const std::function<bool(const char* name, DBusMessageIter& value)>& use);

/// The type of the value at which an iterator stands.
QByteArray typeOf(DBusMessageIter& value);

/// Stands `value` at an argument of the event; false when it has none of that name, or has not the form of an event.
bool findArgument(DBusMessage* signal, const QByteArray& name, DBusMessageIter& value);

/// Whether a message is a signal of the modules' common interface.
bool isEvent(DBusMessage* message);

/// The match rule for the events of a name, or for all with an empty one, from one module or from all.
QString eventRule(const QString& name, const QString& module = QString());

} // namespace wire
