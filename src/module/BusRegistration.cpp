// Bus registration: the module's names, its single instance, its object and its standing subscriptions.
#include "module/VelModule.h"

#include "bus/BusNames.h"
#include "bus/OwnObject.h"
#include "errors/VelExitCodes.h"
#include "events/VelDBusTypes.h"
#include "log/GuardedLog.h"
#include "module/ModuleInfo.h"
#include "module/StartUpFault.h"

#include <QDBusConnectionInterface>

#include <dbus/dbus.h>

#include <cstdlib>

namespace {

// Made when the library is loaded, so that a reference to it is good for the life of the process.
const QString dbusInterfaceName = vel::bus::commonInterface();

// One question to the bus, where a proxy asks several.
bool isOwned(const QDBusConnection& connection, const QString& moduleName) {
    return connection.isConnected() && vel::bus::isReachable(moduleName) &&
           connection.interface()->isServiceRegistered(vel::bus::serviceName(moduleName));
}

// libdbus stops reading while more than 63 MiB of received messages are not freed yet, and Qt cannot make it read again
// from the thread that frees them: the module would be deaf for good after one large message. The largest message has
// room twice.
void letLargeMessagesIn(const QDBusConnection& connection) {
    constexpr long mostHeld = 256L * 1024 * 1024;
    if (auto* const libdbus = static_cast<DBusConnection*>(connection.internalPointer()))
        dbus_connection_set_max_received_size(libdbus, mostHeld);
}

} // namespace

void VelModule::initDBus(const QString& name) {
    m_moduleName = name;
    initLoggerList(m_moduleName);
    vel::logInfo([&] { return QStringLiteral("The module's DBus name is ") + name; });
    m_dbusServiceName = vel::bus::serviceName(name);
    m_dbusObjectName = vel::bus::objectPath(name);
    vel::bus::setOwnObject(this, m_dbusObjectName);
    letLargeMessagesIn(m_connection);
    const bool isConnected = m_connection.isConnected();
    if (!isConnected)
        vel::logNoBus(name, m_connection); // now: what Qt is asked for later replaces the reason

    // Before this process registers anything: whoever answers now is another one. Two that start at the same moment
    // can both pass; the bus gives the name to one of them, and the other goes on without it.
    if (isOwned(m_connection, name) && isModuleConnected(name)) {
        vel::logWarning([&] { return QStringLiteral("%1 is already running: Stopping new instance.").arg(name); });
        vel::logSecondInstance(name, m_connection);
        std::exit(VelAlreadyRunning);
    }

    // The object before the name: whoever sees the name finds the object. Only adaptors: none of this class's own
    // slots becomes a D-Bus method.
#if VEL_MODULE_INFO
    m_info = new vel::ModuleInfo(*this);
    m_info->exportOn(m_connection);
#endif
    if (vel::bus::isValidObjectPath(m_dbusObjectName))
        m_connection.registerObject(m_dbusObjectName, this, QDBusConnection::ExportAdaptors);
    const bool nameIsTaken =
        vel::bus::isValidServiceName(m_dbusServiceName) && m_connection.registerService(m_dbusServiceName);
    if (!vel::bus::isReachable(name))
        vel::logUnreachableName(name);
    else if (isConnected && !nameIsTaken)
        vel::logNameNotTaken(name, m_connection);
    registerCoreDBusTypes();

    vel::logDebug([] { return QStringLiteral("subscribe to -- log_level_changed -- event"); });
    subscribe(QStringLiteral("log_level_changed"), this, SLOT(loggerChanged(VelEvent)));
    subscribe(QStringLiteral("reset_data_default"), this, SLOT(resetToDefault()));
    subscribe(QStringLiteral("reset_data_factory"), this, SLOT(resetToFactory()));
}

const QString& VelModule::getDbusObjectName() const {
    return m_dbusObjectName;
}

const QString& VelModule::getDbusServiceName() const {
    return m_dbusServiceName;
}

const QString& VelModule::getDbusInterfaceName() const {
    return dbusInterfaceName;
}

bool VelModule::getDBusServiceInfos(const QString& moduleName, QString& dbusObject, QString& dbusService,
                                    QString& dbusInterface) const {
    dbusService = vel::bus::serviceName(moduleName);
    dbusObject = vel::bus::objectPath(moduleName);
    dbusInterface = vel::bus::commonInterface();
    return true;
}
