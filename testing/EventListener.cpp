// Hears events.
#include "testing/EventListener.h"

#include "testing/TimeLimit.h"

using vel::testing::waitUntil;

bool EventListener::waitForEvents(int count) {
    return waitUntil([&] { return static_cast<int>(m_events.size()) >= count; });
}

bool EventListener::waitForBareCalls(int count) {
    return waitUntil([&] { return m_bareCalls >= count; });
}

bool EventListener::waitForEvent(const std::function<bool(const VelEvent&)>& isExpected) {
    return waitUntil([&] { return !m_events.empty() && isExpected(m_events.back()); });
}

void EventListener::heard(VelEvent event) {
    m_events.push_back(event);
    if (onEvent)
        onEvent(event);
}

void EventListener::called() {
    ++m_bareCalls;
}
