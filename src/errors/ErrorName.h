// The D-Bus error that each type of a VelException is.
#pragma once

#include "errors/VelException.h"

namespace vel {

/// "org.freedesktop.DBus.Error.AccessDenied" and so on; ".Failed" for a number that is no type. Always a name that can be
/// sent: QDBusError::Other has none, and sending it aborts.
QString errorNameOf(VelException::ErrorType type);

} // namespace vel
