// From a module's name to its names on the bus, and back: the library's scheme, compiled in.
#pragma once

#include "bus/BusNames.h"

#include <QStringList>

namespace velctl {

using vel::bus::commonInterface;

inline QString serviceOf(const QString& module) {
    return vel::bus::serviceName(module);
}
inline QString pathOf(const QString& module) {
    return vel::bus::objectPath(module);
}

/// The module that owns a service; empty when the service is no module's.
QString moduleOfService(const QString& service);

/// The module that publishes from a path: the path itself, without its first slash.
inline QString moduleOfPath(const QString& path) {
    return path.mid(1);
}

/// Whether a text can be a module's name, or an event's: letters, digits and underscores, no digit first.
bool isValidName(const QString& name);

/// Throws a Failure when `name` cannot be one; `verb` is what was to be done with it, `what` what it names.
void requireValidName(const QString& verb, const QString& what, const QString& name);

/// "there are Media, Tuner": what somebody may have meant who wrote a name that is none.
QString knownNames(const QStringList& names);

} // namespace velctl
