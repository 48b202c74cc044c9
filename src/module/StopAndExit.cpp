// How a module ends: the requests that lead to STOP, and the destructor.
#include "module/VelModule.h"

#include "bus/OwnObject.h"
#include "bus/VelDBusInterface.h"
#include "log/GuardedLog.h"

#include <cxxabi.h>

namespace {

const QString supervisor = QStringLiteral("ApplicationManager");

// Keeps the connection until all of the module is gone. When a connection loses its last reference, Qt tears it down
// without waiting for receivers that are being destroyed. While it lives, ~QObject disconnects each of them safely.
class ConnectionHolder final : public QObject {
public:
    ConnectionHolder(const QDBusConnection& connection, QObject* parent) : QObject(parent), m_connection(connection) {}

private:
    const QDBusConnection m_connection;
};

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
    vel::bus::setOwnObject(nullptr, QString());
    qDeleteAll(m_dbusInterfaces);
    m_dbusInterfaces.clear();
    QDBusConnection::disconnectFromBus(m_connection.name());
    disconnect(this, SIGNAL(sig_exit()), this, SLOT(slot_exit_module()));
    delete m_ownedObject;
    m_ownedObject = nullptr;
    clearAutomate();
    clearLoggerList();
    new ConnectionHolder(m_connection, this); // the last child is the last to be deleted
}
