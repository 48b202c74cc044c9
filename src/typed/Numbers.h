// Numbers between their C++ types and the bus: taken from any numeric type that holds the value exactly.
#pragma once

#include <QVariant>

namespace vel::typed {

/// Whether one of Qt's metatypes is a number.
bool isNumber(int type);

/// The number as it goes into a message; what has no form there, as a wider one that has.
QVariant numberToBus(int type, const void* value);

/// Stores a number that came in `value`, which is of that type. Result: false for what is none, or does not fit exactly.
[[nodiscard]] bool storeNumber(int type, const QVariant& received, void* value);

} // namespace vel::typed
