// Hears events, as a module's own object would.
#pragma once

#include "events/VelEvent.h"

#include <QObject>

#include <functional>
#include <list>

class EventListener : public QObject {
    Q_OBJECT
public:
    /// The events heard so far.
    const std::list<VelEvent>& events() const { return m_events; }

    /// Runs the event loop until that many events, or calls of the slot without parameters, were heard. False when the test's time limit
    /// passes.
    [[nodiscard]] bool waitForEvents(int count);
    [[nodiscard]] bool waitForBareCalls(int count);

    /// Runs the event loop until the event last heard is such a one.
    [[nodiscard]] bool waitForEvent(const std::function<bool(const VelEvent&)>& isExpected);

    /// Called for every event; may throw.
    std::function<void(const VelEvent&)> onEvent;

public Q_SLOTS:
    void heard(VelEvent event);
    void called();

private:
    std::list<VelEvent> m_events;
    int m_bareCalls = 0;
};
