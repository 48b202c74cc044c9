// The D-Bus forms of this system's own types, and their registration.
#pragma once

#include "events/VelEvent.h"

#include <QDBusArgument>
#include <QMap>
#include <QString>

/// A plain string map for module interfaces: `a{ss}` on the bus. Every module registers it before its init() runs.
using QMapQStringQString = QMap<QString, QString>;

/// Writes an event as the D-Bus structure (ssia{ss}a{sv}): name, context, argument count, type names, arguments.
///
/// Errors:   an argument without a D-Bus form makes the whole message impossible to build.
VEL_EXPORT QDBusArgument& operator<<(QDBusArgument& argument, const VelEvent& event);

/// Reads an event from that structure into `event`, which is overwritten in name and context and added to in
/// arguments.
///
/// Errors:   a value of any other form leaves `event` as it was; a count that does not fit the arguments takes those
///           that are there, at most as many as the count says. Nothing is logged.
VEL_EXPORT const QDBusArgument& operator>>(const QDBusArgument& argument, VelEvent& event);

/// Registers VelEvent with Qt's type system and with Qt D-Bus; returns its metatype number. Every VelModule does the
/// same while it is constructed; a program without a module calls this before it touches the bus. May be repeated.
VEL_EXPORT int registerCoreDBusTypes();
