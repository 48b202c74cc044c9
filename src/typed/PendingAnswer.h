// An answer that is awaited; a child of the module, and gone when it has arrived.
//
// Not a QDBusPendingCallWatcher: an answer that has come before its watcher is made takes a turn of the event loop more
// than the one after it, and the older answer would overtake the newer. Qt connects these slots before it sends.
#pragma once

#include <QDBusError>
#include <QDBusMessage>
#include <QObject>

class VelModule;

namespace vel::typed {

class PendingAnswer : public QObject {
    Q_OBJECT
public:
    explicit PendingAnswer(VelModule& module);

    /// The answer comes to this, in its turn; what cannot be sent is answered at once, from the event loop too.
    void send(const QDBusMessage& message, int milliseconds);

Q_SIGNALS:
    /// Once, from the event loop; an error is an answer too.
    void arrived(const QDBusMessage& answer);

private Q_SLOTS:
    void take(const QDBusMessage& answer);
    void takeError(const QDBusError& error, const QDBusMessage& sent);
};

} // namespace vel::typed
