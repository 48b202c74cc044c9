// Readable names of types.
#include "errors/VelDemangle.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

std::string util_demangle(std::string name) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                          std::free);
    return readable ? std::string(readable.get()) : name;
}
