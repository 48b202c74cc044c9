// Whether a signal has asked for the module's end before the module could be stopped.
#pragma once

namespace vel {

/// True from the first signal that velStopOnSignals() was told of.
bool stopWasAskedFor();

} // namespace vel
