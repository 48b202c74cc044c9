// Enumerations and flags go by their keys, so that an event can be read, and a new key in the middle changes none of the others.
#pragma once

#include "typed/Received.h"
#include "typed/Types.h"

namespace vel::typed {

/// See toBus() and fromBus() of Values.h.
[[nodiscard]] bool enumerationToBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch);
[[nodiscard]] bool enumerationFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch);

} // namespace vel::typed
