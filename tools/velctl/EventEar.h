// Hears events: subscriptions that the bus filters.
#pragma once

#include "Bus.h"
#include "Event.h"

#include <QObject>

#include <functional>

namespace velctl {

class EventEar : public QObject {
    Q_OBJECT
public:
    /// Subscribes the events of these names, of every module; no names mean every event. Returns when the bus
    /// knows of the subscriptions. `heard` must not throw: it is called from Qt's delivery.
    EventEar(Bus& bus, const QStringList& names, std::function<void(const Event&)> heard);

private Q_SLOTS:
    void take(const QDBusMessage& signal);

private:
    std::function<void(const Event&)> m_heard;
};

} // namespace velctl
