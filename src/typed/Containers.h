// What is made of other values: lists, maps and structs, each of which is read and written element by element.
#pragma once

#include "typed/Received.h"
#include "typed/Types.h"

namespace vel::typed {

/// See toBus() and fromBus() of Values.h. A mismatch inside has the path to it.
[[nodiscard]] bool listToBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch);
[[nodiscard]] bool listFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch);
[[nodiscard]] bool mapToBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch);
[[nodiscard]] bool mapFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch);
[[nodiscard]] bool gadgetToBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch);
[[nodiscard]] bool gadgetFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch);

} // namespace vel::typed
