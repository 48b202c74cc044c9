// What is common to the fuzz targets. Each target is a function of bytes that must return, and whose claims hold,
// whatever the bytes are.
#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// Under the name, and with the parameters, by which libFuzzer calls it. 0 always.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

/// Ends the process, as a crash does, when what the code claims is not so.
inline void require(bool isSo, const char* claim) {
    if (isSo)
        return;
    std::fprintf(stderr, "not so: %s\n", claim);
    std::abort();
}

inline QByteArray bytesOf(const std::uint8_t* data, std::size_t size) {
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<int>(size));
}

} // namespace fuzz
