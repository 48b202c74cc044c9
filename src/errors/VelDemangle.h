// Readable names of types.
#pragma once

#include "platform/VelExport.h"

#include <string>

/// The readable form of a type's mangled name: "i" gives "int". A name that cannot be demangled comes back unchanged.
///
/// Thread:   any.
VEL_EXPORT std::string util_demangle(std::string name);
