// Single values between their C++ types and the bus.
#pragma once

#include "typed/Received.h"
#include "typed/Types.h"

namespace vel::typed {

/// The value of that type as it goes into a message.
///
/// Result:   false when it has no form there, an enumeration's value without a key for one.
[[nodiscard]] bool toBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch);

/// Fills `value`, which is of that type, from what came in a message.
///
/// Result:   false when that does not convert without loss.
[[nodiscard]] bool fromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch);

} // namespace vel::typed
