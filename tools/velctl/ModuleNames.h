// From a module's name to its names on the bus, and back.
//
// The scheme is the library's: its proxy tells the names without a bus. Nothing here repeats them.
#pragma once

#include <QString>

namespace velctl {

QString serviceOf(const QString& module);
QString pathOf(const QString& module);
const QString& commonInterface();

/// The module that owns a service; empty when the service is no module's.
QString moduleOfService(const QString& service);

/// The module that publishes from a path: the path itself, without its first slash.
QString moduleOfPath(const QString& path);

/// Whether a text can be a module's name, or an event's: letters, digits and underscores, no digit first.
bool isValidName(const QString& name);

/// Throws a Failure when `name` cannot be one; `verb` is what was to be done with it, `what` what it names.
void requireValidName(const QString& verb, const QString& what, const QString& name);

} // namespace velctl
