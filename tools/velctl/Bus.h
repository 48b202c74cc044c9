// The connection to the bus, and the few questions that are put to the bus daemon.
#pragma once

#include "TimeLimit.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>

namespace velctl {

/// One connection. No proxy is ever built here: that would block for the bus library's own limit when the
/// other side is stopped. And nothing is started on demand.
class Bus {
public:
    /// Throws a Failure with NoBus when there is none.
    explicit Bus(const TimeLimit& limit);

    const TimeLimit& limit() const { return m_limit; }
    QDBusConnection& connection() { return m_connection; }

    /// The names of all modules, sorted.
    QStringList modules();

    /// The unique name of the connection that answers for a module; empty when there is none.
    QString ownerOf(const QString& module);

    /// Its process; 0 when there is none, or when the bus does not tell.
    qint64 processOf(const QString& uniqueName);

    /// Sends, and returns when the bus daemon has it: sending only queues, and this process may end at once.
    /// Throws a Failure when the bus is lost on the way.
    void send(const QDBusMessage& message);

    /// Waits until the bus daemon has taken everything sent so far.
    void flush();

    /// A call to the bus daemon's own interface, or another interface of it.
    QDBusMessage ask(const QString& method, const QVariantList& arguments,
                     const QString& interface = "org.freedesktop.DBus");

    /// A call to a module's object, which has to be sent by the caller.
    static QDBusMessage callTo(const QString& module, const QString& interface, const QString& method);

    /// Whether an answer is the bus daemon's own, and not the module's.
    static bool isFromBusDaemon(const QDBusMessage& answer);

private:
    TimeLimit m_limit;
    QDBusConnection m_connection;
};

} // namespace velctl
