// The module "Bridge".
#include "Bridge.h"

#include "Log.h"

#include <VelExitCodes>

#include <QCoreApplication>
#include <QUuid>

namespace {

MqttMessage willOf(const QString& machine) {
    MqttMessage will; // empty: the machine's state is gone
    will.topic = Topic{Topic::State, machine, {}, {}}.text();
    will.qos = 1;
    will.isRetained = true;
    return will;
}

} // namespace

Bridge::Bridge(const Configuration& configuration)
    : VelModule("Bridge"), m_configuration(configuration),
      m_mqtt("vel-bridge-" + configuration.machine, configuration.broker, configuration.limits.awayMs / 1000,
             willOf(configuration.machine)),
      m_link{m_configuration, m_bus, m_mqtt, m_store, {}} {
    m_link.clock.start();
    new BridgeAdaptor(this);
}

Bridge::~Bridge() = default;

bool Bridge::init() {
    QString reason;
    if (!m_bus.open(reason)) {
        logError(QString("cannot reach the bus: %1; the bridge ends").arg(reason));
        return false;
    }
    if (!m_store.open(m_configuration.store, reason)) {
        logError(QString("cannot use the store '%1': %2; the bridge ends").arg(m_configuration.store, reason));
        return false;
    }
    connect(&m_bus, &LocalBus::lost, this, [] {
        logError("the bus has ended the connection; the bridge ends");
        QCoreApplication::exit(VelRunError);
    });
    connect(&m_bus, &LocalBus::callCame, this, [this](DBusMessage* call) { // nobody has a reason to
        if (!dbus_message_get_no_reply(call))
            m_bus.send(wire::made(dbus_message_new_error(call, DBUS_ERROR_UNKNOWN_METHOD,
                                                         "this is a bridge's own "
                                                         "connection"))
                           .get());
    });
    m_exported = std::make_unique<ExportedModules>(m_link);
    m_imported = std::make_unique<ImportedModules>(m_link);
    m_eventsOut = std::make_unique<EventsOut>(m_link);
    m_eventsIn = std::make_unique<EventsIn>(m_link);
    m_eventsOut->isOwn = [this](DBusMessage* message) {
        const char* const sender = dbus_message_get_sender(message);
        return sender && (m_bus.uniqueName() == sender || m_imported->isOwnConnection(sender));
    };
    connect(&m_mqtt, &Mqtt::connected, this, &Bridge::brokerIsThere);
    connect(&m_mqtt, &Mqtt::disconnected, this, &Bridge::brokerIsGone);
    connect(&m_mqtt, &Mqtt::came, this, &Bridge::take);
    // The bus has taken the subscriptions when it answers what was asked after them: who is connected hears everything.
    m_bus.ask("GetId", {}, [this](DBusMessage*) { m_mqtt.open(); });
    return true;
}

bool Bridge::stop() {
    m_mqtt.publish(willOf(m_configuration.machine));
    m_mqtt.close();
    return true;
}

void Bridge::brokerIsThere() {
    m_connectedSince = QDateTime::currentDateTime();
    m_whyNot.clear();
    logInfo(QString("the broker '%1' is there").arg(m_configuration.broker.host));
    const QString connection = QUuid::createUuid().toRfc4122().toHex();
    m_exported->connected(connection);
    m_imported->connected();
    m_eventsIn->connected();
    m_eventsOut->connected();
    MqttMessage state = willOf(m_configuration.machine); // last: with it, what was told above is in force
    state.payload = R"({"connection":")" + connection.toUtf8() + R"(","online":true})";
    m_mqtt.publish(state);
}

void Bridge::brokerIsGone(const QString& reason) {
    if (getState() != "STOP" && (m_connectedSince.isValid() || m_whyNot != reason))
        logWarning(QString("cannot reach the broker '%1': %2; the bridge goes on trying")
                       .arg(m_configuration.broker.host, reason));
    const bool wasThere = m_connectedSince.isValid();
    m_connectedSince = QDateTime();
    m_whyNot = reason;
    if (!wasThere)
        return;
    m_imported->disconnected();
    m_eventsOut->disconnected();
}

void Bridge::take(const MqttMessage& message) {
    const Topic topic = Topic::parse(message.topic);
    switch (topic.kind) {
    case Topic::None:
        return;
    case Topic::Event:
        return m_eventsIn->take(topic, message);
    case Topic::Call:
        return m_exported->take(topic, message);
    case Topic::Answer:
        return m_imported->take(topic, message);
    case Topic::Received:
        return m_eventsOut->take(topic, message);
    case Topic::Module:
        m_exported->take(topic, message);
        return m_imported->take(topic, message);
    case Topic::State:
        m_imported->take(topic, message);
        return m_eventsOut->take(topic, message);
    }
}

QVariantMap Bridge::status() const {
    QVariantMap status{{"Machine", m_configuration.machine}, {"Connected", m_connectedSince.isValid()}};
    if (m_connectedSince.isValid())
        status.insert("ConnectedSince", m_connectedSince.toString(Qt::ISODate));
    else
        status.insert("Reason", m_whyNot);
    if (!m_eventsIn)
        return status;
    const Outbox& outbox = m_eventsOut->outbox();
    const QVariantMap more{{"RoundTrip", m_eventsOut->roundTripMs()},
                           {"Machines", m_imported->machines()},
                           {"Modules", m_imported->onBus()},
                           {"Conflicts", m_imported->inConflict()},
                           {"Exported", m_exported->present()},
                           {"Receivers", outbox.receivers()},
                           {"Queued", outbox.count()},
                           {"QueuedBytes", outbox.bytes()},
                           {"Accepted", outbox.accepted()},
                           {"Sent", outbox.sentCount()},
                           {"Received", m_eventsIn->received()},
                           {"Dropped", outbox.dropped()},
                           {"Missed", m_eventsIn->missed()},
                           {"Duplicates", m_eventsIn->duplicates()},
                           {"Refused", m_eventsIn->refused() + m_eventsOut->refused() + m_exported->refused()},
                           {"CallsOut", m_imported->sent()},
                           {"CallsIn", m_exported->called()},
                           {"StoreWritable", m_store.isWritable()}};
    for (auto one = more.begin(); one != more.end(); ++one)
        status.insert(one.key(), one.value());
    return status;
}
