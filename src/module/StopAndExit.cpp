// How a module ends: the requests that lead to STOP, and the destructor.
#include "module/VelModule.h"

#include "bus/VelDBusInterface.h"
#include "platform/GuardedLog.h"

#include <QDBusPendingCallWatcher>

#include <cxxabi.h>

namespace {

const QString supervisor = QStringLiteral("ApplicationManager");

// Qt's D-Bus thread closes the connection some time after it was given up, and finishes the calls that are open. When their
// watchers are destroyed at the same moment, the two destroy the ends of one signal connection, and corrupt the heap. So the
// watchers go first.
void dropWatchers(const QObject* owner) {
    if (owner)
        qDeleteAll(owner->findChildren<QDBusPendingCallWatcher*>());
}

} // namespace

void VelModule::stopModuleEvent(VelEvent) {
    vel::logDebug(
        [&] { return QStringLiteral("stopModuleEvent for module %1 in %2 state ").arg(m_moduleName, m_stateName); });
    Q_EMIT sig_stop();
}

void VelModule::presentationLoadedEvent(VelEvent) {
    vel::logDebug([&] { return QStringLiteral("presentationLoadedEvent for module %1").arg(m_moduleName); });
    Q_EMIT sig_presentation_loaded();
}

void VelModule::stopWebclientEvent(VelEvent) {
    vel::logDebug([&] { return QStringLiteral("stopWebclientEvent for module %1").arg(m_moduleName); });
    Q_EMIT sig_web_stop();
}

void VelModule::exit() {
    vel::logDebug([&] { return QStringLiteral("exit ") + m_moduleName; });
    if (m_moduleName == supervisor)
        Q_EMIT sig_stop();
    else
        Q_EMIT sig_exit();
}

void VelModule::slot_exit_module() {
    vel::defaultLogger()->debug(QStringLiteral("slot_exit ") + m_moduleName); // the one line the logger itself filters
    try {
        asyncRemoteCall(supervisor, QStringLiteral("stopModule"), {m_moduleName});
    } catch (abi::__forced_unwind&) {
        throw; // the thread is being cancelled: swallowing this would abort the process
    } catch (...) {
        Q_EMIT sig_stop();
    }
}

VelModule::~VelModule() {
    moduleIsDead = true;
    qDeleteAll(m_dbusInterfaces);
    m_dbusInterfaces.clear();
    dropWatchers(this);
    dropWatchers(m_ownedObject);
    QDBusConnection::disconnectFromBus(m_connection.name());
    disconnect(this, SIGNAL(sig_exit()), this, SLOT(slot_exit_module()));
    delete m_ownedObject;
    m_ownedObject = nullptr;
    clearAutomate();
    clearLoggerList();
}
