// A bus client made of libdbus alone: it sends what Qt would never send, and can watch everything that the bus
// carries.
#pragma once

#include "testing/RawMessage.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class RawClient {
public:
    /// Connects to the session bus.
    RawClient();

    bool isConnected() const { return m_connection != nullptr; }

    /// The name that the bus has given it.
    QString uniqueName() const;

    /// Sends a signal of the common interface from the path of the module called `sender`; `fill` appends its
    /// arguments.
    [[nodiscard]] bool sendSignal(const QString& sender, const QString& member,
                                  const std::function<void(DBusMessageIter&)>& fill);

    /// Sends a message of any kind.
    [[nodiscard]] bool send(DBusMessage* message);

    /// Waits until the bus has taken everything sent.
    void flush();

    /// Waits until the module of that name has handled everything that was sent to it before, and forgets what has arrived
    /// here meanwhile. False when it does not answer.
    [[nodiscard]] bool waitForModule(const QString& name);

    /// From now on this client only watches: every message on the bus. False when the bus refuses.
    [[nodiscard]] bool becomeMonitor();

    /// What a monitor has seen so far, one text a message: "signal MEMBER", "call MEMBER", "return" or "error NAME".
    /// Reads until a signal called `member` of the common interface has passed, which ends the list.
    QStringList seenUntilSignal(const QString& member);

private:
    struct Close {
        void operator()(DBusConnection* connection) const;
    };
    std::unique_ptr<DBusConnection, Close> m_connection;
};

/// Appends an event's structure: `count` is what its count field says, `arguments` how many arguments follow, `types`
/// how many type names; every argument is an int wrapped in `wrapping` further variants.
void appendEvent(DBusMessageIter& iterator, const QByteArray& name, int count, int arguments, int types,
                 int wrapping = 0);

/// Appends one value of each complete type in `signature`, containers filled with one element.
void appendBySignature(DBusMessageIter& iterator, const char* signature);
