// Events of this machine's bus on their way to the broker.
#pragma once

#include "Link.h"
#include "Outbox.h"

#include <functional>

class EventsOut : public QObject {
    Q_OBJECT
public:
    explicit EventsOut(Link& link);

    /// Whether a message of the bus is one of the bridge's own, which is never taken.
    std::function<bool(DBusMessage*)> isOwn = [](DBusMessage*) { return false; };

    /// The connection is there: what a receiver has comes next.
    void connected();
    void disconnected();

    /// A message of "received" or "state"; others are not looked at.
    void take(const Topic& topic, const MqttMessage& message);

    const Outbox& outbox() const { return m_outbox; }

    /// Events that could not leave.
    qint64 refused() const { return m_refused; }
    double roundTripMs() const { return m_roundTripMs; }

private:
    void takeSignal(DBusMessage* signal);
    void send();
    void acknowledged(int packet, const QString& refusal);

    Link& m_link;
    Outbox m_outbox;
    bool m_hasNew = false;
    qint64 m_refused = 0;
    Once m_refusal;
    Once m_brokersRefusal;
    int m_timed = -1; // the packet whose way is measured
    QElapsedTimer m_timer;
    double m_roundTripMs = 0;
};
