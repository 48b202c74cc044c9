// Who answers for a module, followed without asking again and again.
#pragma once

#include "Bus.h"

#include <QDBusServiceWatcher>

namespace velctl {

/// Follows the owner of a module's name through the bus daemon's announcements, while the event loop runs.
/// Waiting costs no questions then, and on a busy machine none is left unanswered when the time is up.
class OwnerWatch {
public:
    OwnerWatch(Bus& bus, const QString& module);

    /// The unique name of the connection; empty when there is none.
    const QString& owner() const { return m_owner; }

private:
    QDBusServiceWatcher m_watcher;
    QString m_owner;
    Q_DISABLE_COPY(OwnerWatch)
};

} // namespace velctl
