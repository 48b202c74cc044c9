// Who would hear an event.
#pragma once

#include "Bus.h"
#include "Event.h"

namespace velctl {

/// False when no connection, but this one, has subscribed an event of that name and publisher. True also when
/// the bus does not tell.
bool mayBeHeard(Bus& bus, const Event& event);

} // namespace velctl
