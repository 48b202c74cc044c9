// Whether a value can go into a D-Bus message at all.
#pragma once

#include <QVariant>

namespace vel {

/// True when `value`, and every value nested in it that can be looked into, has a D-Bus form that the bus accepts: a
/// known type, nested at most 63 levels deep, and at most about 64 MiB in all.
///
/// Asked before a message is built: Qt notices a value without a D-Bus form only when it is half-way through the
/// message, and inside a container libdbus then aborts the process instead of reporting an error.
bool isMarshallable(const QVariant& value);

/// The same of an event with these arguments.
bool isMarshallableEvent(const QVariantMap& arguments);

} // namespace vel
