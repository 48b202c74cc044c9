// The other end of a Qt D-Bus connection, without a bus between, which would cost two more processes' turns for each
// message. What it sends goes through Qt and libdbus as any received message does.
//
// A QDBusArgument that can be read is made by Qt alone, from a message that came over a connection. There is no other
// way to one that does not take Qt's private parts.
#pragma once

#include "testing/RawMessage.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusServer>

#include <memory>

namespace fuzz {

/// A signal of the common interface: a byte whose lowest bit is the byte order, the signature up to a zero, and the body.
/// Null when it is none that a bus would carry: not of the signature, or too deep.
RawMessage signalOf(const QByteArray& input, const QByteArray& member);

class Peer : public QObject {
    Q_OBJECT
public:
    /// Connects; ends the process when that fails. There must be a QCoreApplication.
    Peer();

    /// Qt's end. Read and written by Qt's own thread, as every connection is.
    QDBusConnection& connection() { return m_connection; }

    /// Sends a signal to Qt's end; returns when every slot that is connected to it has been called.
    void deliver(DBusMessage* message);

    /// The next message from Qt's end, where it has been sent before.
    RawMessage receive();

private Q_SLOTS:
    void heardLast() { m_hasHeardLast = true; }

private:
    struct Close {
        void operator()(DBusConnection* connection) const;
    };

    QDBusServer m_server;
    std::unique_ptr<DBusConnection, Close> m_socket;
    bool m_hasHeardLast = false;
    QDBusConnection m_connection;
};

} // namespace fuzz
