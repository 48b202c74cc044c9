// The other end of a Qt D-Bus connection, made of a socket: what it sends has gone through Qt and libdbus as any
// received message has, with no bus between, which would cost two more processes' turns for each.
//
// A QDBusArgument that can be read is made by Qt alone, from a message that came over a connection. There is no other
// way to one that does not take Qt's private parts.
#pragma once

#include <QByteArray>
#include <QDBusConnection>
#include <QObject>
#include <QTemporaryDir>

#include <dbus/dbus.h>

#include <memory>

namespace fuzz {

struct Unref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, Unref>;

/// The message that the bytes are; null when libdbus says that they are none.
Message messageOf(const QByteArray& bytes);

/// A signal of the common interface: a byte whose lowest bit is the byte order, the signature up to a zero, and the body.
/// Null when it is none that a bus would carry: not of the signature, or too deep.
Message signalOf(const QByteArray& input, const QByteArray& member);

class Peer : public QObject {
    Q_OBJECT
public:
    /// Connects; ends the process when that fails. There must be a QCoreApplication.
    Peer();
    ~Peer() override;

    /// Qt's end. Read and written by Qt's own thread, as every connection is.
    QDBusConnection& connection() { return m_connection; }

    /// Sends a signal to Qt's end; returns when every slot that is connected to it has been called.
    void deliver(DBusMessage* message);

    /// The next message from Qt's end, where it has been sent before.
    Message receive();

private Q_SLOTS:
    void heardLast() { m_hasHeardLast = true; }

private:
    QByteArray readSome();
    void authenticate();
    void send(DBusMessage* message);

    QTemporaryDir m_folder;
    int m_socket = -1;
    QByteArray m_received;
    bool m_hasHeardLast = false;
    QDBusConnection m_connection;
};

} // namespace fuzz
