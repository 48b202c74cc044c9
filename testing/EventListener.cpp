// Hears events.
#include "testing/EventListener.h"

#include <QTest>

namespace {

constexpr int longestWaitMs = 60000;

} // namespace

bool EventListener::waitForEvents(int count) {
    return QTest::qWaitFor([&] { return static_cast<int>(m_events.size()) >= count; }, longestWaitMs);
}

bool EventListener::waitForBareCalls(int count) {
    return QTest::qWaitFor([&] { return m_bareCalls >= count; }, longestWaitMs);
}

bool EventListener::waitForEvent(const std::function<bool(const VelEvent&)>& isExpected) {
    return QTest::qWaitFor([&] { return !m_events.empty() && isExpected(m_events.back()); }, longestWaitMs);
}

void EventListener::heard(VelEvent event) {
    m_events.push_back(event);
    if (onEvent)
        onEvent(event);
}

void EventListener::called() {
    ++m_bareCalls;
}
