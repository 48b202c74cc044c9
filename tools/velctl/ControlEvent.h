// Control events that modules take without an answer of their own.
#pragma once

#include "Bus.h"
#include "Commands.h"
#include "wire/Event.h"

namespace velctl {

/// Publishes the event, and shows which of the modules it has reached. Returns the exit status.
int sendControlEvent(const Request& request, Bus& bus, const QString& name, std::vector<wire::EventArgument> arguments,
                     const QStringList& modules);

} // namespace velctl
