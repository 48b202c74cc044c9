// Results for test programs without a framework.
#pragma once

#include "testing/Main.h"
#include "testing/Result.h"

#include <cstdio>
#include <cstdlib>

/// Ends the program by abort() when the Result is a failure, and shows its message; as assert(), but in every build.
#define VEL_REQUIRE(result) ::vel::testing::require(result, #result, __FILE__, __LINE__)

namespace vel::testing {

inline void require(const Result& result, const char* expression, const char* file, int line) {
    if (result)
        return;
    std::fprintf(stderr, "%s:%d: '%s' failed\n%s\n", file, line, expression, result.text().constData());
    std::abort();
}

} // namespace vel::testing
