// The tests that cannot pass everywhere, and why: one list, so that nobody has to search for what a run left out.
#pragma once

#include <QTest>

/// Skips the test function that runs, or its row, when it is on the list and what it needs is missing here. First line
/// of a test function, or of the class's init().
#define VEL_SKIP_WHERE_IMPOSSIBLE()                                                                                    \
    do {                                                                                                               \
        if (const char* missing = whatIsMissing())                                                                     \
            QSKIP(missing);                                                                                            \
    } while (false)

/// What the test function that runs, or its row, needs and this machine or its libraries lack; null when it can run.
const char* whatIsMissing();
