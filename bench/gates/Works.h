// Works by name, each done as often as an order says: "calls 100". What a work took is counted by itself.
#pragma once

#include "process/Allocations.h"
#include "start/Member.h"

#include <valgrind/callgrind.h>

#include <map>

namespace gates {

using Work = std::function<void(int times)>;

/// The longest name has its five arguments; both programs send the same.
inline const QString eventName = QStringLiteral("gate_event");

inline void answer(const char* what, long number) {
    std::printf("{\"%s\": %ld}\n", what, number);
    std::fflush(stdout);
}

/// Between these two lies what is counted; under Valgrind each end writes a dump of its own.
inline long begin() {
    CALLGRIND_ZERO_STATS;
    return allocations::count();
}
inline void end(long before) {
    const long after = allocations::count();
    CALLGRIND_DUMP_STATS;
    answer("allocations", after - before);
}

/// Counts events as they arrive, and ends the count at the last one that was asked for.
class Hearing {
public:
    void expect(int events) {
        m_left = events;
        answer("listening", events);
        m_before = begin();
    }
    void heard(bool isWhole) {
        if (!isWhole)
            std::exit(EXIT_FAILURE); // the driver sees the end of the output
        if (--m_left == 0)
            end(m_before);
    }

private:
    int m_left = 0;
    long m_before = 0;
};

/// Obeys the orders on the input: "WORK TIMES". A work that is not counted answers by itself.
class Works : public member::Orders {
public:
    Works(std::map<std::string, Work> counted, std::map<std::string, Work> others)
        : member::Orders([this](const std::string& order) { obey(order); }), m_counted(std::move(counted)),
          m_others(std::move(others)) {}

private:
    void obey(const std::string& order) {
        const std::string name = order.substr(0, order.find(' '));
        const int times = std::stoi(order.substr(name.size()));
        if (m_others.count(name))
            return m_others.at(name)(times);
        const long before = begin();
        m_counted.at(name)(times);
        end(before);
    }

    const std::map<std::string, Work> m_counted;
    const std::map<std::string, Work> m_others;
};

/// A round trip: when it is over, the bus has read all that was sent before.
inline void flush() {
    QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
}

} // namespace gates
