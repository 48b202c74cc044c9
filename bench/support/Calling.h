// A program that calls on request. Each line "WAY PAYLOAD COUNT" on its input makes so many calls; the answer is a line of
// JSON with the time of a call and this process's CPU time for it.
#pragma once

#include "support/Measure.h"

#include <functional>
#include <iostream>
#include <sstream>

namespace measure {

const char* const sentText = "a text of some length";
constexpr int mapSize = 5;
constexpr int callsBefore = 50; // of each way: they find everything in place

/// One turn of a way to call: it checks its answers, and is more than one call when several are outstanding.
struct Turn {
    std::function<void()> take;
    int calls = 1;
};

/// How the program calls in a way, with a payload that is "text" or "map"; no function for a way that it does not know.
using Ways = std::function<Turn(const std::string& way, bool isText)>;

inline void measureCalls(const Turn& turn, int calls) {
    const auto turns = [&turn](int count) { return (count + turn.calls - 1) / turn.calls; };
    for (int before = 0; before < turns(callsBefore); ++before)
        turn.take();

    std::vector<double> times;
    times.reserve(turns(calls));
    const double cpuBefore = cpuTime();
    const double begin = now();
    double last = begin;
    for (int taken = 0; taken < turns(calls); ++taken) {
        turn.take();
        const double end = now();
        times.push_back((end - last) / turn.calls);
        last = end;
    }
    const double made = turns(calls) * turn.calls;
    std::printf("{\"time\": %.3f, \"p50\": %.3f, \"p99\": %.3f, \"CPU caller\": %.3f, \"calls\": %.0f}\n",
                (last - begin) / made, percentile(times, 0.5), percentile(times, 0.99), (cpuTime() - cpuBefore) / made,
                made + turns(callsBefore) * turn.calls);
    std::fflush(stdout);
}

inline int serveCalls(const Ways& ways) {
    say("ready");
    for (std::string line; std::getline(std::cin, line);) {
        std::string way;
        std::string payload;
        int calls = 0;
        std::istringstream(line) >> way >> payload >> calls;
        const Turn turn = ways(way, payload == "text");
        require(bool(turn.take), "no such way to call");
        measureCalls(turn, calls);
    }
    return 0;
}

} // namespace measure
