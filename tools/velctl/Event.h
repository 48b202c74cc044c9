// An event as it was on the bus, complete enough to be put there again.
#pragma once

#include "Value.h"

#include <QDBusMessage>
#include <QJsonObject>
#include <QList>
#include <QPair>

namespace velctl {

struct Event {
    QString path;            ///< from where it was published
    QString member;          ///< under which it was subscribed
    std::vector<Value> body; ///< for an event of this system, one structure; a stranger may send anything

    /// An event as a module would publish it.
    static Event make(const QString& publisher, const QString& name, const QString& context,
                      const QList<QPair<QString, Value>>& arguments);

    static Event fromMessage(const QDBusMessage& signal);

    /// Throws a Failure when it cannot be sent.
    QDBusMessage toMessage() const;

    /// The object of one line of `--json`. The time is the one of now.
    QJsonObject toJson() const;

    /// The inverse. What is missing is filled in as a module would: `publisher` is whose path it gets then.
    /// Throws a QString with the reason when the object describes no event.
    static Event fromJson(const QJsonObject& json, const QString& publisher);

    /// The line for people.
    QString line() const;

    bool hasEventForm() const;
};

} // namespace velctl
