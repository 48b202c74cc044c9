// What every measuring program needs: clocks, percentiles, and a way out that is noticed. No D-Bus here.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <unistd.h>
#include <vector>

namespace measure {

/// In microseconds, like all times here.
inline double clockTime(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return time.tv_sec * 1e6 + time.tv_nsec / 1e3;
}

/// The same clock in all processes.
inline double now() {
    return clockTime(CLOCK_MONOTONIC);
}

/// What all threads of this process have used.
inline double cpuTime() {
    return clockTime(CLOCK_PROCESS_CPUTIME_ID);
}

inline void sleepUntil(double moment) {
    const auto seconds = time_t(moment / 1e6);
    const timespec time{seconds, long((moment - seconds * 1e6) * 1e3)};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

inline double percentile(std::vector<double>& values, double part) {
    if (values.empty())
        return 0;
    const auto at = values.begin() + std::ptrdiff_t(part * (values.size() - 1) + 0.5);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

/// The driver sees the end of the output, and ends the run.
[[noreturn]] inline void fail(const std::string& what) {
    std::fprintf(stderr, "bench: %s\n", what.c_str());
    _exit(1);
}

inline void require(bool holds, const char* what) {
    if (!holds)
        fail(what);
}

inline void say(const char* line) {
    std::puts(line);
    std::fflush(stdout);
}

} // namespace measure
