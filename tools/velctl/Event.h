// An event as a person reads it.
#pragma once

#include "Output.h"

#include "wire/Event.h"

namespace velctl {

/// The line for people, with the arguments as `velctl publish` takes them. A text longer than an argument of a command
/// can be is cut.
Row eventLine(DBusMessage* signal);

/// The text of a value as people write it, cut where it is longer than an argument of a command can be.
QString textOf(DBusMessageIter& value);

} // namespace velctl
