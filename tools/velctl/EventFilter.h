// Which events a command looks at.
#pragma once

#include "Bus.h"

#include <QPair>
#include <QRegularExpression>
#include <QStringList>

#include <functional>

namespace velctl {

/// Names of events, in which * and ? stand for any characters and for one; arguments that the event must have with
/// those texts; and the module that publishes it. What is empty is not looked at.
class EventFilter {
public:
    /// Throws a Failure with Usage when a name can be none; `verb` is what was to be done with the event.
    EventFilter(const QString& verb, const QStringList& names, const QString& module,
                const QList<QPair<QString, QString>>& arguments = {});

    /// Subscribes on the bus, which filters by names without * and ?, and by module; and calls `heard` for those only
    /// that the filter lets through.
    void subscribe(Bus& bus, std::function<void(DBusMessage*)> heard) const;

    /// The match rules with which the bus sends what the filter lets through, and maybe more.
    QStringList rules() const;

    /// Whether it lets an event of that name and path through, whatever its arguments are.
    bool matches(const QString& name, const QString& path) const;

private:
    bool matches(DBusMessage* message) const;

    QStringList m_names; ///< as they were written
    QRegularExpression m_pattern;
    QString m_module;
    QList<QPair<QString, QString>> m_arguments;
};

} // namespace velctl
