// Who would hear an event.
#pragma once

#include "Bus.h"

namespace velctl {

/// False when no connection, but this one, has subscribed an event of that name and path. True also when the bus does
/// not tell: dbus-broker does not.
bool mayBeHeard(Bus& bus, DBusMessage* event);

} // namespace velctl
