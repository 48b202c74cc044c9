// What passed on the bus, and what a test says about it.
#pragma once

#include <QList>
#include <QString>
#include <QVariant>

namespace vel::testing {

/// One event or one call that the bus has carried.
struct Passed {
    enum Kind { Event, Call };

    Kind kind = Event;
    QString module;        ///< the publisher of an event, the callee of a call
    QString name;          ///< of the event, or of the method
    QVariantMap arguments; ///< of an event
    QVariantList values;   ///< of a call

    /// For a person: "event brightness_changed(percent: int 40) from Dimmer", "call Tuner.tune(int 3)".
    QString text() const;
};

/// A condition on an event or a call. What it does not name may be anything.
///
///     published("brightness_changed").from("Dimmer").with("percent", 40)
///     called("Tuner", "tune").withValues({98.5, "fm"})
///
/// Values are equal when their types are, too: 40 is an int, and the text "40" or a qlonglong is something else.
class Expectation {
public:
    /// Only those of that publisher.
    Expectation from(const QString& module) const;

    /// Only events with that argument, of that value. May be repeated.
    Expectation with(const QString& argument, const QVariant& value) const;

    /// Only events with exactly these arguments.
    Expectation withExactly(const QVariantMap& arguments) const;

    /// Only calls with exactly these values.
    Expectation withValues(const QVariantList& values) const;

    bool isMetBy(const Passed& passed) const;

    /// For a person: what may be anything is left out, or "...".
    QString text() const;

private:
    friend Expectation published(const QString& name);
    friend Expectation called(const QString& module, const QString& method);
    explicit Expectation(const Passed& wanted) : m_wanted(wanted) {}

    Passed m_wanted; // an empty text may be anything
    bool m_isExact = false;
};

/// Events of that name; of every name when it is empty.
Expectation published(const QString& name = QString());

/// Calls of that method of that module; of all its methods when `method` is empty.
Expectation called(const QString& module, const QString& method = QString());

/// A value with its type, for a person: `int 40`, `"forty"`, `true`, `["a", "b"]`.
QString textOf(const QVariant& value);

} // namespace vel::testing
