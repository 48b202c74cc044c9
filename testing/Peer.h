// Somebody else on the bus, through whom a test calls modules and publishes events.
#pragma once

#include "testing/Result.h"
#include "testing/TimeLimit.h"

#include <QVariant>

#include <memory>

struct DBusMessage;

namespace vel::testing {

class Connection;

/// What a call came to.
struct Answer {
    QVariantList values;
    QString errorName; ///< as on the bus; empty when the call succeeded
    QString errorText;

    /// The first value; invalid when there is none.
    QVariant value() const { return values.value(0); }

    explicit operator bool() const { return errorName.isEmpty(); }

    /// "answered 40", "failed with NAME: TEXT".
    QString text() const;

    /// Whether it succeeded with these values, types included.
    Result is(const QVariantList& expected) const;

    /// Whether it failed with that error's name, and a text that contains `part`.
    Result failed(const QString& name, const QString& part = QString()) const;
};

/// A connection of its own to the bus, as another process has. Nothing is introspected and nothing is cached, so a
/// module that is frozen or gone costs one time limit and no more.
///
/// Values:   bool, uchar, short, ushort, int, uint, qlonglong, qulonglong, double, QString, QStringList, QByteArray,
///           QVariantList and QVariantMap. What arrives comes as these: other arrays and structures as QVariantList, other
///           dictionaries as QVariantMap. Types of your own and file descriptors cannot be sent with it.
/// Thread:   the one of the QCoreApplication; its event loop runs during a wait.
class Peer {
public:
    /// To the session bus that the environment names now: that of the PrivateBus made last.
    Peer();
    ~Peer();

    /// Calls a method of the module called `module`, and waits for the answer.
    ///
    /// Errors:   in the answer; "org.freedesktop.DBus.Error.NoReply" at the time limit, "...InvalidArgs" for a name or a
    ///           value that cannot be sent.
    Answer call(const QString& module, const QString& method, const QVariantList& values = {});

    /// Publishes an event as the module called `module` would. When it returns, the bus has handed it to everybody
    /// who was subscribed.
    Result publish(const QString& module, const QString& event, const QVariantMap& arguments = {});

    /// Waits until the module has handled everything that the bus had handed to it before: what it published then has
    /// passed the bus, too. A handshake: after init() this is when nothing earlier is under way.
    Result waitForModule(const QString& module);

    /// The module's lifecycle step: "CHECK" to "EXIT", as it tells at /vel/info.
    ///
    /// Errors:   in the answer; a module whose library was built without VEL_MODULE_INFO does not tell.
    Answer state(const QString& module);

    /// Whether a module of that name is on the bus.
    bool isOnBus(const QString& module);

private:
    Answer answerTo(DBusMessage* question);

    std::unique_ptr<Connection> m_connection;
};

} // namespace vel::testing
