// Both ends of a stream of events, whatever the library: the publisher's loop, and what a receiver counts.
//
//     PROGRAM publish [...]              each line "COUNT RATE" on its input publishes so many events, at so many a second;
//                                        0 is as fast as possible; "warm" publishes some that do not count
//     PROGRAM receive COUNT WAY [...]    "ready" once the bus knows the subscription, "warm" after those that do not count,
//                                        and a line of JSON after the last event
//
// An event has five arguments: "count" is its number, "ratio" the publisher's clock, so that the receiver knows how long
// it was under way.
#pragma once

#include "support/Measure.h"

#include <functional>
#include <iostream>
#include <sstream>

namespace measure {

constexpr int argumentCount = 5;
constexpr int eventsBefore = 50;   // numbered below zero: the first one that counts finds everything in place
constexpr unsigned patience = 120; // seconds until a receiver gives up, and the run with it: the last event is lost

/// What a receiver read from one event.
struct Received {
    int number;
    double sentAt;
    bool isWhole; // all names, types and values are there
};

/// What this process received, in all of its receivers.
class Tally {
public:
    explicit Tally(int events, int receivers = 1)
        : m_receivers(receivers), m_last(events - 1), m_expected(events * receivers) {
        m_delays.reserve(m_expected);
    }

    /// Says that the subscription is in force.
    void begin() {
        alarm(patience);
        say("ready");
    }

    /// Counts an event, and reports when it was the last one for the last receiver. The order of one publisher's events
    /// is kept on the way, so nothing can come after it.
    void take(const Received& event) {
        if (event.number < 0) {
            warmUp(event.number);
            return;
        }
        const double moment = now();
        m_delays.push_back(moment - event.sentAt);
        m_malformed += !event.isWhole;
        m_receiversDone += event.number == m_last;
        if (m_receiversDone == m_receivers)
            report(moment);
    }

private:
    void warmUp(int number) {
        m_receiversDone += number == -1;
        if (m_receiversDone < m_receivers)
            return;
        m_receiversDone = 0;
        m_cpuBefore = cpuTime();
        say("warm");
    }

    void report(double moment) {
        const double cpu = cpuTime() - m_cpuBefore;
        const int lost = m_expected - int(m_delays.size());
        std::printf("{\"lost\": %d, \"malformed\": %d, \"end\": %.3f, \"p50\": %.3f, \"p99\": %.3f, \"cpu\": %.3f}\n",
                    lost, m_malformed, moment, percentile(m_delays, 0.5), percentile(m_delays, 0.99), cpu);
        std::fflush(stdout);
        m_receiversDone = 0;
    }

    const int m_receivers;
    const int m_last;
    const int m_expected;
    int m_receiversDone = 0;
    int m_malformed = 0;
    double m_cpuBefore = 0;
    std::vector<double> m_delays;
};

/// Publishes on request. `send` publishes one event; `flush` returns when the bus has all of them.
inline int servePublishing(const std::function<void(int number, double now)>& send,
                           const std::function<void()>& flush) {
    say("ready");
    for (std::string line; std::getline(std::cin, line);) {
        if (line == "warm") {
            for (int number = -eventsBefore; number < 0; ++number)
                send(number, now());
            flush();
            continue;
        }
        int count = 0;
        double rate = 0;
        std::istringstream(line) >> count >> rate;
        const double cpuBefore = cpuTime();
        const double begin = now();
        for (int number = 0; number < count; ++number) {
            if (rate > 0)
                sleepUntil(begin + number * 1e6 / rate);
            send(number, now());
        }
        flush();
        std::printf("{\"begin\": %.3f, \"cpu\": %.3f}\n", begin, cpuTime() - cpuBefore);
        std::fflush(stdout);
    }
    return 0;
}

} // namespace measure
