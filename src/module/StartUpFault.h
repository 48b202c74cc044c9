// What went wrong when the module was put on the bus.
#pragma once

#include <QString>

class QDBusConnection;

namespace vel {

/// One error line each. All of them cost round trips, or a look at the environment: to be called after the failure.
void logNoBus(const QString& moduleName, const QDBusConnection& connection);
void logUnreachableName(const QString& moduleName);
void logSecondInstance(const QString& moduleName, const QDBusConnection& connection);
void logNameNotTaken(const QString& moduleName, const QDBusConnection& connection);

} // namespace vel
