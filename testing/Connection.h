// A connection to a bus, of libdbus alone: Qt's own keeps the first address that it was given, and shows nobody the calls
// of others.
#pragma once

#include <QSocketNotifier>
#include <QString>

#include <dbus/dbus.h>

#include <memory>

namespace vel::testing {

struct Unref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, Unref>;

/// Thread:   any; libdbus locks. One at a time takes messages.
class Connection {
public:
    /// To the session bus that the environment names now.
    Connection();

    bool isOpen() const { return m_connection != nullptr; }

    /// Why it is not open.
    const QString& error() const { return m_error; }

    int fileDescriptor() const;

    /// What the bus calls it; empty when it is not open.
    QString uniqueName() const;

    /// The bus forgets it; the object stays.
    void close();

    /// Sends, and returns when it is written. The message's serial number; 0 when it could not be sent.
    quint32 send(DBusMessage* message);

    /// Waits for the answer, without an event loop: for the bus itself, which always answers. Null for an error.
    Message callBus(DBusMessage* question);

    /// Reads what has come, without waiting, and takes one message; null when there is none.
    Message take();

    /// As soon as there is input, this makes an event loop of this thread turn.
    void wakeEventLoop();

private:
    struct Close {
        void operator()(DBusConnection* connection) const;
    };
    QString m_error;
    std::unique_ptr<DBusConnection, Close> m_connection;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

/// A call of a method of the bus itself.
Message busCall(const char* interface, const char* method);

} // namespace vel::testing
