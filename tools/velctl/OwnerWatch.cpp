// Who answers for a module, followed without asking again and again.
#include "OwnerWatch.h"

#include "ModuleNames.h"

namespace velctl {

OwnerWatch::OwnerWatch(Bus& bus, const QString& module)
    : m_watcher(serviceOf(module), bus.connection(), QDBusServiceWatcher::WatchForOwnerChange) {
    QObject::connect(&m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, &m_watcher,
                     [this](const QString&, const QString&, const QString& owner) { m_owner = owner; });
    // After the subscription: what changes from now on is announced.
    m_owner = bus.ownerOf(module);
}

} // namespace velctl
