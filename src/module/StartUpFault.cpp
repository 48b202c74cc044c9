// What went wrong when the module was put on the bus.
#include "module/StartUpFault.h"

#include "bus/BusNames.h"
#include "errors/VelExitCodes.h"
#include "log/GuardedLog.h"
#include "log/SafeText.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusReply>

namespace {

// "process 123"; without a number when the bus does not tell.
QString ownerOf(const QString& service, const QDBusConnection& connection) {
    const QDBusReply<uint> pid = connection.interface()->servicePid(service);
    return pid.isValid() ? QStringLiteral("process %1").arg(pid.value()) : QStringLiteral("another process");
}

} // namespace

void vel::logNoBus(const QString& moduleName, const QDBusConnection& connection) {
    logError([&] {
        const QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
        return QStringLiteral(
                   "cannot put module %1 on the bus: %2 (DBUS_SESSION_BUS_ADDRESS is %3); it runs, but hears "
                   "nobody and is heard by nobody")
            .arg(quoted(moduleName), safeText(connection.lastError().message()),
                 address.isEmpty() ? QStringLiteral("not set") : quoted(address));
    });
}

void vel::logUnreachableName(const QString& moduleName) {
    logError([&] {
        return QStringLiteral(
                   "cannot put module %1 on the bus: its name must consist of letters, digits and underscores, "
                   "not beginning with a digit; it runs, but nobody can call or stop it")
            .arg(quoted(moduleName));
    });
}

void vel::logSecondInstance(const QString& moduleName, const QDBusConnection& connection) {
    logError([&] {
        return QStringLiteral("cannot start module %1: %2 is it already; this one ends with %3")
            .arg(quoted(moduleName), ownerOf(bus::serviceName(moduleName), connection),
                 getExitCodeInString(VelAlreadyRunning));
    });
}

void vel::logNameNotTaken(const QString& moduleName, const QDBusConnection& connection) {
    logError([&] {
        const QString service = bus::serviceName(moduleName);
        QString reason = connection.interface()->lastError().message();
        if (connection.interface()->isServiceRegistered(service))
            reason = ownerOf(service, connection) + QStringLiteral(" took the name at the same moment");
        return QStringLiteral("cannot take the name %1 for module %2: %3; it runs, but nobody can call it")
            .arg(quoted(service), quoted(moduleName), safeText(reason));
    });
}
