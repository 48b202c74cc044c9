// An answer that is awaited; a child of the module, and gone when it has arrived.
#pragma once

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>

class VelModule;

namespace vel::typed {

class PendingAnswer : public QObject {
    Q_OBJECT
public:
    PendingAnswer(VelModule& module, const QDBusPendingCall& call);

Q_SIGNALS:
    /// Once, from the event loop; an error is an answer too.
    void arrived(const QDBusMessage& answer);

private:
    QDBusPendingCallWatcher m_watcher;
};

} // namespace vel::typed
