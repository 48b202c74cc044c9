// Events of other machines on their way to this machine's bus.
//
// An event is put on the bus, then its number into the store, then its machine is told. So a bridge that is killed loses
// none; the one that it was killed with, between the first two, comes twice. Nothing can write both at once.
#include "EventsIn.h"

#include "Log.h"
#include "Payload.h"

#include <QUuid>

#include <utility>

namespace {

constexpr int tellMs = 20;               // how long what was received waits to be told
constexpr quint64 tellEvents = 100;      // or so many of it
constexpr qint64 longestPauseMs = 60000; // between two questions for what is missing
constexpr long mostWaiting = 256 * 1024; // bytes that the bus has not taken: then the broker keeps the rest

QByteArray newId() {
    return QUuid::createUuid().toRfc4122().toHex();
}

} // namespace

EventsIn::EventsIn(Link& link) : m_link(link) {
    const auto& imports = link.configuration.imports;
    for (auto import = imports.begin(); import != imports.end(); ++import) {
        if (import->events.isEmpty() && link.configuration.controlIn.isEmpty())
            continue;
        Source& source = m_sources[import.key()];
        source.inbox = Inbox(link.store.mark(import.key().toUtf8()));
        source.rate = Rate(link.configuration.limits.eventsPerSecond);
    }
    m_telling.setSingleShot(true);
    m_telling.setInterval(tellMs);
    connect(&m_telling, &QTimer::timeout, this, [this] {
        for (auto& [machine, source] : m_sources) {
            if (source.toldNumber != source.inbox.mark().number && !m_unwritten.contains(machine))
                tell(machine, source);
        }
    });
    connect(&link.bus, &LocalBus::sentAll, this, [this] {
        note();
        m_link.mqtt.hold(false);
    });
}

void EventsIn::connected() {
    for (auto& [machine, source] : m_sources) {
        m_link.mqtt.subscribe(Topic{Topic::Event, machine, "+", "+"}.text(), 1);
        source.again = newId();
        source.askedAt = m_link.clock.elapsed();
        tell(machine, source);
    }
}

void EventsIn::take(const Topic& topic, const MqttMessage& message) {
    const auto found = m_sources.find(topic.machine);
    if (found == m_sources.end())
        return;
    Source& source = found->second;
    const QByteArray claimed = message.properties.value("machine");
    if (!claimed.isEmpty() && claimed != topic.machine.toUtf8())
        return refuse(source, message.topic, QString("it claims to be of '%1'").arg(QString::fromUtf8(claimed)));
    const QByteArray publisher = message.properties.value("publisher");
    const quint64 number = message.properties.value("number").toULongLong();
    switch (source.inbox.decide(publisher, number, message.properties.value("after").toULongLong())) {
    case Inbox::Duplicate:
        ++m_duplicates;
        return;
    case Inbox::Gap:
        if (m_link.clock.elapsed() - source.askedAt > source.pauseMs) {
            source.askedAt = m_link.clock.elapsed();
            source.pauseMs = std::min(2 * source.pauseMs, longestPauseMs);
            source.again = newId();
            tell(topic.machine, source);
        }
        return;
    case Inbox::Take:
        break;
    }
    publish(topic.machine, topic, message);
    source.inbox.take(publisher, number);
    source.askedAt = 0; // the next gap is a new one
    source.pauseMs = firstPauseMs;
    m_unwritten += topic.machine;
    if (m_link.bus.hasSentAll())
        note();
    else if (m_link.bus.waiting() > mostWaiting)
        m_link.mqtt.hold(true);
    if (source.inbox.mark().number - source.toldNumber >= tellEvents && m_unwritten.isEmpty())
        tell(topic.machine, source);
    else if (!m_telling.isActive())
        m_telling.start();
}

void EventsIn::publish(const QString& machine, const Topic& topic, const MqttMessage& message) {
    const Configuration& configuration = m_link.configuration;
    const Selection& wanted =
        isControlEvent(topic.second) ? configuration.controlIn : configuration.imports.find(machine)->events;
    if (!wanted.has(topic.first, topic.second))
        return;
    Source& source = m_sources.at(machine);
    if (message.payload.size() > configuration.limits.payloadBytes)
        return refuse(source, message.topic, QString("it takes %1 bytes").arg(message.payload.size()));
    if (!source.rate.allows(m_link.clock.elapsed()))
        return refuse(source, message.topic, "there are more in a second than allowed");
    try {
        const wire::Message event = eventIn(message.payload, topic.first, topic.second);
        m_link.bus.send(event.get());
        ++m_received;
        source.refusal.over();
    } catch (const wire::Error& error) {
        refuse(source, message.topic, error.reason);
    }
}

void EventsIn::refuse(Source& source, const QString& topic, const QString& reason) {
    ++m_refused;
    if (source.refusal.first())
        logError(
            QString("cannot publish '%1': %2; it is dropped, as others of its machine like it, see 'refused' in the "
                    "status")
                .arg(topic, reason));
}

void EventsIn::note() {
    for (const QString& machine : std::exchange(m_unwritten, {}))
        m_link.store.setMark(machine.toUtf8(), m_sources.at(machine).inbox.mark());
    m_link.store.commit();
}

void EventsIn::tell(const QString& machine, Source& source) {
    const Mark& mark = source.inbox.mark();
    MqttMessage message;
    message.topic = Topic{Topic::Received, m_link.machine(), machine, {}}.text();
    message.payload = R"({"again":")" + source.again + R"(","number":")" + QByteArray::number(mark.number) +
                      R"(","publisher":")" + mark.publisher + R"("})";
    message.qos = 1;
    message.isRetained = true;
    if (m_link.mqtt.publish(message) >= 0)
        source.toldNumber = mark.number;
}

qint64 EventsIn::missed() const {
    qint64 sum = 0;
    for (const auto& [machine, source] : m_sources)
        sum += source.inbox.missed();
    return sum;
}
