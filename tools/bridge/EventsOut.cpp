// Events of this machine's bus on their way to the broker.
#include "EventsOut.h"

#include "Log.h"
#include "Payload.h"

#include "bus/BusNames.h"
#include "wire/Event.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr int receiversLookMs = 1000;

} // namespace

EventsOut::EventsOut(Link& link)
    : m_link(link), m_outbox(link.store, {link.configuration.limits.queueEvents, link.configuration.limits.queueBytes,
                                          link.configuration.limits.awayMs}) {
    connect(&m_link.bus, &LocalBus::signalCame, this, &EventsOut::takeSignal);
    connect(&m_link.bus, &LocalBus::tookSome, this, [this] {
        if (!std::exchange(m_hasNew, false))
            return;
        m_outbox.commit();
        send();
    });
    connect(&m_link.mqtt, &Mqtt::acknowledged, this, &EventsOut::acknowledged);
    auto* const look = new QTimer(this);
    connect(look, &QTimer::timeout, this, [this] {
        if (!m_link.mqtt.isConnected())
            return;
        m_outbox.lookAtReceivers(m_link.clock.elapsed());
        m_outbox.commit();
        send();
    });
    look->start(receiversLookMs);
    if (!m_link.configuration.exportedEvents.isEmpty() || !m_link.configuration.controlOut.isEmpty())
        m_link.bus.ask("AddMatch", {wire::eventRule(QString())});
}

void EventsOut::takeSignal(DBusMessage* signal) {
    if (!wire::isEvent(signal) || isOwn(signal))
        return;
    const QString module = vel::bus::moduleNameOfPath(QString::fromUtf8(dbus_message_get_path(signal)));
    const QString name = QString::fromUtf8(dbus_message_get_member(signal));
    const Configuration& configuration = m_link.configuration;
    if (!(isControlEvent(name) ? configuration.controlOut : configuration.exportedEvents).has(module, name) ||
        !vel::bus::isReachable(module) || module == "Bridge") // each machine has one of that name
        return;
    const QByteArray payload = eventPayload(signal);
    QString reason = whyNotToSend(signal);
    if (payload.size() > configuration.limits.payloadBytes)
        reason = QString("it takes %1 bytes, and no more than %2 are allowed")
                     .arg(payload.size())
                     .arg(configuration.limits.payloadBytes);
    if (!reason.isEmpty()) {
        ++m_refused;
        if (m_refusal.first())
            logError(
                QString("cannot send the event '%1' of '%2': %3; it stays on this machine, as others of this kind, "
                        "see 'refused' in the status")
                    .arg(name, module, reason));
        return;
    }
    m_outbox.accept(Topic{Topic::Event, configuration.machine, module, name}.text().toUtf8(), payload);
    m_hasNew = true;
}

void EventsOut::send() {
    constexpr int atOnce = 200; // then others have their turn, and the acknowledgements go on with it
    if (!m_link.mqtt.isConnected())
        return;
    for (int count = 0; count < atOnce; ++count) {
        const QueuedEvent* const event = m_outbox.next(m_link.clock.elapsed());
        if (!event)
            return;
        MqttMessage message;
        message.topic = QString::fromUtf8(event->topic);
        message.payload = event->payload;
        message.qos = 1;
        message.contentType = eventContentType;
        message.properties = {{"machine", m_link.machine().toUtf8()},
                              {"publisher", m_link.store.publisher()},
                              {"number", QByteArray::number(event->number)},
                              {"after", QByteArray::number(m_outbox.before(event->number))}};
        QString refusal;
        const int packet = m_link.mqtt.publish(message, &refusal);
        if (packet >= 0) {
            m_outbox.sent(packet);
            if (m_timed < 0) {
                m_timed = packet;
                m_timer.start();
            }
            continue;
        }
        if (refusal.isEmpty())
            return;
        if (m_refusal.first())
            logError(QString("cannot send '%1': %2; it is dropped").arg(message.topic, refusal));
        m_outbox.refuse();
    }
    QTimer::singleShot(0, this, &EventsOut::send);
}

void EventsOut::acknowledged(int packet, const QString& refusal) {
    if (packet == m_timed) {
        m_roundTripMs = static_cast<double>(m_timer.nsecsElapsed()) / 1e6;
        m_timed = -1;
    }
    if (!refusal.isEmpty()) {
        ++m_refused;
        if (m_brokersRefusal.first())
            logError(
                QString(
                    "the broker refuses an event: %1; it is dropped, as others of this kind; may this machine write "
                    "below 'vel/1/%2/'?")
                    .arg(refusal, m_link.machine()));
    }
    m_outbox.acknowledged(packet, !refusal.isEmpty());
    m_hasNew = true; // what was released is written with what comes next
    send();
}

void EventsOut::connected() {
    m_outbox.connected(m_link.clock.elapsed());
    m_link.mqtt.subscribe(Topic{Topic::Received, "+", m_link.machine(), {}}.text(), 1);
    for (const QString& receiver : m_outbox.receivers())
        m_link.mqtt.subscribe(Topic{Topic::State, receiver, {}, {}}.text(), 1);
    send();
}

void EventsOut::disconnected() {
    m_timed = -1;
    m_outbox.disconnected(m_link.clock.elapsed());
}

void EventsOut::take(const Topic& topic, const MqttMessage& message) {
    const qint64 now = m_link.clock.elapsed();
    if (topic.kind == Topic::State) {
        m_outbox.receiverIs(topic.machine, !message.payload.isEmpty(), now);
    } else if (topic.kind == Topic::Received && topic.first == m_link.machine()) {
        if (message.payload.isEmpty())
            return m_outbox.forget(topic.machine);
        const QJsonObject json = QJsonDocument::fromJson(message.payload).object();
        const bool isKnown = m_outbox.receivers().contains(topic.machine);
        m_outbox.receiverHas(
            topic.machine, {json.value("publisher").toString().toUtf8(), json.value("number").toString().toULongLong()},
            json.value("again").toString().toUtf8(), now);
        if (!isKnown)
            m_link.mqtt.subscribe(Topic{Topic::State, topic.machine, {}, {}}.text(), 1);
    } else {
        return;
    }
    m_outbox.commit();
    send();
}
