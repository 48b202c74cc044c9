// The connection to the broker, in the event loop.
#include "Mqtt.h"

#include <QRandomGenerator>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mosquitto.h>
#include <mqtt_protocol.h>

namespace {

constexpr int firstPauseMs = 500;
constexpr int longestPauseMs = 30000;
constexpr int attemptMs = 10000; // for the connection and the broker's welcome
constexpr int keepAliveSeconds = 10;
constexpr int mostUnacknowledged = 500;
constexpr int readsPerTurn = 100;

struct Free {
    void operator()(mosquitto_property* list) const { mosquitto_property_free_all(&list); }
};
using Properties = std::unique_ptr<mosquitto_property, Free>;

// The list is the owner's all the while: adding changes its beginning.
template <typename Add>
void add(Properties& list, Add addTo) {
    mosquitto_property* raw = list.release();
    const int result = addTo(&raw);
    list.reset(raw);
    if (result == MOSQ_ERR_NOMEM)
        throw std::bad_alloc();
}

void addText(Properties& list, int identifier, const QByteArray& text) {
    if (!text.isEmpty())
        add(list,
            [&](mosquitto_property** to) { return mosquitto_property_add_string(to, identifier, text.constData()); });
}

Properties propertiesOf(const MqttMessage& message) {
    Properties list;
    addText(list, MQTT_PROP_CONTENT_TYPE, message.contentType);
    addText(list, MQTT_PROP_RESPONSE_TOPIC, message.responseTopic);
    if (!message.correlation.isEmpty())
        add(list, [&](mosquitto_property** to) {
            return mosquitto_property_add_binary(to, MQTT_PROP_CORRELATION_DATA, message.correlation.constData(),
                                                 static_cast<uint16_t>(message.correlation.size()));
        });
    if (message.expirySeconds > 0)
        add(list, [&](mosquitto_property** to) {
            return mosquitto_property_add_int32(to, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                                static_cast<uint32_t>(message.expirySeconds));
        });
    for (auto property = message.properties.begin(); property != message.properties.end(); ++property)
        add(list, [&](mosquitto_property** to) {
            return mosquitto_property_add_string_pair(to, MQTT_PROP_USER_PROPERTY, property.key().constData(),
                                                      property.value().constData());
        });
    return list;
}

QByteArray textIn(const mosquitto_property* list, int identifier) {
    char* text = nullptr;
    mosquitto_property_read_string(list, identifier, &text, false);
    const std::unique_ptr<char, void (*)(void*)> owned(text, free);
    return text;
}

QByteArray bytesIn(const mosquitto_property* list, int identifier) {
    void* bytes = nullptr;
    uint16_t size = 0;
    mosquitto_property_read_binary(list, identifier, &bytes, &size, false);
    const std::unique_ptr<void, void (*)(void*)> owned(bytes, free);
    return QByteArray(static_cast<const char*>(bytes), bytes ? size : 0);
}

QMap<QByteArray, QByteArray> pairsIn(const mosquitto_property* list) {
    constexpr int most = 16; // a stranger's; nothing of ours has as many
    QMap<QByteArray, QByteArray> pairs;
    char *name = nullptr, *value = nullptr;
    const mosquitto_property* at =
        mosquitto_property_read_string_pair(list, MQTT_PROP_USER_PROPERTY, &name, &value, false);
    while (at && pairs.size() < most) {
        pairs.insert(name, value);
        free(name);
        free(value);
        name = value = nullptr;
        at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, true);
    }
    free(name);
    free(value);
    return pairs;
}

QString textOf(int result) {
    return result < 0 ? QString::fromLocal8Bit(std::strerror(-result)) : QString(mosquitto_strerror(result));
}

// What an attempt to connect came to, in its thread.
struct Outcome {
    int result = MOSQ_ERR_SUCCESS;
    QString error; // of libmosquitto's log

    static void onLog(mosquitto*, void* self, int level, const char* text) {
        if (level == MOSQ_LOG_ERR)
            static_cast<Outcome*>(self)->error = QString::fromUtf8(text);
    }
};

const char* orNull(const QByteArray& text) {
    return text.isEmpty() ? nullptr : text.constData();
}

} // namespace

Mqtt::Mqtt(const QString& client, const BrokerConfiguration& broker, int sessionSeconds, const MqttMessage& will,
           QObject* parent)
    : QObject(parent), m_client(client.toUtf8()), m_broker(broker), m_sessionSeconds(sessionSeconds), m_will(will),
      m_pauseMs(firstPauseMs) {
    mosquitto_lib_init();
    m_again.setSingleShot(true);
    connect(&m_again, &QTimer::timeout, this, &Mqtt::connectNow);
    m_attempt.setSingleShot(true);
    connect(&m_attempt, &QTimer::timeout, this,
            [this] { end(QString("the broker did not answer within %1 s").arg(attemptMs / 1000)); });
    m_housekeeping.setInterval(1000); // as libmosquitto asks for
    connect(&m_housekeeping, &QTimer::timeout, this, [this] {
        const int result = mosquitto_loop_misc(m_mosquitto.get());
        if (result != MOSQ_ERR_SUCCESS)
            end(textOf(result));
        else
            watchWriting();
    });
}

Mqtt::~Mqtt() = default;

void Mqtt::open() {
    m_isClosed = false;
    connectNow();
}

void Mqtt::close() {
    m_isClosed = true;
    m_again.stop();
    if (!m_isConnected)
        return;
    mosquitto_disconnect_v5(m_mosquitto.get(), 0, nullptr);
    for (int tries = 0; tries < readsPerTurn && mosquitto_want_write(m_mosquitto.get()); ++tries)
        mosquitto_loop_write(m_mosquitto.get(), 1);
    end("closed");
}

void Mqtt::connectNow() {
    m_lastError.clear();
    m_reason.clear();
    m_mosquitto.reset(mosquitto_new(m_client.constData(), false, nullptr), mosquitto_destroy);
    mosquitto* const client = m_mosquitto.get();
    if (!client)
        throw std::bad_alloc();
    mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_int_option(client, MOSQ_OPT_RECEIVE_MAXIMUM, mostUnacknowledged);
    mosquitto_int_option(client, MOSQ_OPT_SEND_MAXIMUM, mostUnacknowledged);
    mosquitto_will_set_v5(client, m_will.topic.toUtf8().constData(), m_will.payload.size(), m_will.payload.constData(),
                          m_will.qos, m_will.isRetained, nullptr);
    const QByteArray user = m_broker.user.toUtf8(), password = m_broker.password.toUtf8();
    mosquitto_username_pw_set(client, orNull(user), orNull(password));
    int result = MOSQ_ERR_SUCCESS;
    if (m_broker.hasTls) {
        const QByteArray authority = m_broker.authority.toLocal8Bit(), certificate = m_broker.certificate.toLocal8Bit(),
                         key = m_broker.key.toLocal8Bit();
        result = mosquitto_tls_set(client, authority.constData(), nullptr, orNull(certificate), orNull(key), nullptr);
        mosquitto_tls_opts_set(client, 1, "tlsv1.2", nullptr); // the lowest
    }
    if (result != MOSQ_ERR_SUCCESS)
        return end(textOf(result));

    // With properties libmosquitto connects only in a way that waits, and it looks names up at once: in a thread, then,
    // which keeps its client until both are over. The callbacks are for the event loop: they are set when it has ended.
    const auto outcome = std::make_shared<Outcome>();
    mosquitto_user_data_set(client, outcome.get());
    mosquitto_log_callback_set(client, Outcome::onLog);
    QThread* const connecting = QThread::create([held = m_mosquitto, host = m_broker.host.toUtf8(),
                                                 port = m_broker.port, session = m_sessionSeconds, outcome] {
        Properties list;
        add(list, [session](mosquitto_property** to) {
            return mosquitto_property_add_int32(to, MQTT_PROP_SESSION_EXPIRY_INTERVAL, static_cast<uint32_t>(session));
        });
        int& status = outcome->result;
        status = mosquitto_connect_bind_v5(held.get(), host.constData(), port, keepAliveSeconds, nullptr, list.get());
        if (status == MOSQ_ERR_ERRNO)
            status = -errno;
    });
    connect(connecting, &QThread::finished, connecting, &QObject::deleteLater);
    connect(connecting, &QThread::finished, this, [this, client, outcome] {
        if (client != m_mosquitto.get() || !m_attempt.isActive())
            return;
        m_lastError = outcome->error;
        watch(outcome->result);
    });
    m_attempt.start(attemptMs);
    connecting->start();
}

void Mqtt::watch(int result) {
    mosquitto* const client = m_mosquitto.get();
    mosquitto_user_data_set(client, this);
    mosquitto_connect_v5_callback_set(client, onConnect);
    mosquitto_disconnect_v5_callback_set(client, onDisconnect);
    mosquitto_message_v5_callback_set(client, onMessage);
    mosquitto_publish_v5_callback_set(client, onPublish);
    mosquitto_log_callback_set(client, onLog);
    const int socket = mosquitto_socket(client);
    if (result != MOSQ_ERR_SUCCESS || socket < 0)
        return end(textOf(result == MOSQ_ERR_SUCCESS ? MOSQ_ERR_NO_CONN : result));
    m_readable = std::make_unique<QSocketNotifier>(socket, QSocketNotifier::Read);
    m_writable = std::make_unique<QSocketNotifier>(socket, QSocketNotifier::Write);
    connect(m_readable.get(), &QSocketNotifier::activated, this, &Mqtt::read);
    connect(m_writable.get(), &QSocketNotifier::activated, this, &Mqtt::write);
    m_housekeeping.start();
    watchWriting();
}

void Mqtt::watchWriting() {
    if (m_writable)
        m_writable->setEnabled(mosquitto_want_write(m_mosquitto.get()));
}

void Mqtt::read() {
    const int result = mosquitto_loop_read(m_mosquitto.get(), readsPerTurn);
    if (result != MOSQ_ERR_SUCCESS)
        return end(textOf(result));
    watchWriting();
}

void Mqtt::write() {
    const int result = mosquitto_loop_write(m_mosquitto.get(), 1);
    if (result != MOSQ_ERR_SUCCESS)
        return end(textOf(result));
    watchWriting();
}

// libmosquitto may be on the stack: its object goes when the next one comes, or with this one.
void Mqtt::end(const QString& reason) {
    m_housekeeping.stop();
    m_attempt.stop();
    for (auto* notifier : {&m_readable, &m_writable}) {
        if (*notifier)
            (*notifier)->setEnabled(false), notifier->release()->deleteLater();
    }
    QString why = m_reason.isEmpty() ? reason : m_reason;
    if (!m_lastError.isEmpty())
        why += " (" + m_lastError + ')';
    else if (m_broker.hasTls && !m_isConnected && reason == textOf(-EPROTO))
        why += " (a broker that does not accept this machine's certificate ends the connection in this way)";
    m_isConnected = false;
    if (!m_isClosed) {
        // Many machines that lost one broker come back one after the other.
        m_again.start(m_pauseMs / 2 + static_cast<int>(QRandomGenerator::global()->bounded(m_pauseMs)) / 2);
        m_pauseMs = std::min(2 * m_pauseMs, longestPauseMs);
    }
    Q_EMIT disconnected(why);
}

int Mqtt::publish(const MqttMessage& message, QString* refusal) {
    if (!m_isConnected)
        return -1;
    int number = -1;
    const Properties properties = propertiesOf(message);
    const int result =
        mosquitto_publish_v5(m_mosquitto.get(), &number, message.topic.toUtf8().constData(), message.payload.size(),
                             message.payload.constData(), message.qos, message.isRetained, properties.get());
    if (result == MOSQ_ERR_SUCCESS) {
        watchWriting();
        return number;
    }
    if (result == MOSQ_ERR_OVERSIZE_PACKET || result == MOSQ_ERR_PAYLOAD_SIZE || result == MOSQ_ERR_INVAL ||
        result == MOSQ_ERR_MALFORMED_UTF8) {
        if (refusal)
            *refusal = textOf(result);
        return -1;
    }
    // The connection is broken. libmosquitto may be on the stack, and the caller is in the middle of something.
    QTimer::singleShot(0, m_readable.get(), [this, why = textOf(result)] { end(why); });
    return -1;
}

void Mqtt::subscribe(const QString& filter, int qos) {
    mosquitto_subscribe_v5(m_mosquitto.get(), nullptr, filter.toUtf8().constData(), qos, 0, nullptr);
    watchWriting();
}

void Mqtt::hold(bool isHeld) {
    m_isHeld = isHeld;
    if (m_readable)
        m_readable->setEnabled(!isHeld);
}

void Mqtt::onConnect(mosquitto*, void* self, int reason, int, const mosquitto_property*) {
    auto* const mqtt = static_cast<Mqtt*>(self);
    if (reason != 0) {
        mqtt->m_reason = mosquitto_reason_string(reason);
        return; // the broker closes
    }
    mqtt->m_isConnected = true;
    mqtt->m_attempt.stop();
    mqtt->m_pauseMs = firstPauseMs;
    Q_EMIT mqtt->connected();
}

void Mqtt::onDisconnect(mosquitto*, void* self, int reason, const mosquitto_property*) {
    auto* const mqtt = static_cast<Mqtt*>(self);
    if (reason > MOSQ_ERR_SUCCESS && reason >= MQTT_RC_UNSPECIFIED)
        mqtt->m_reason = mosquitto_reason_string(reason);
}

void Mqtt::onMessage(mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property* properties) {
    MqttMessage result;
    result.topic = QString::fromUtf8(message->topic);
    result.payload = QByteArray(static_cast<const char*>(message->payload), message->payloadlen);
    result.qos = message->qos;
    result.isRetained = message->retain;
    result.contentType = textIn(properties, MQTT_PROP_CONTENT_TYPE);
    result.responseTopic = textIn(properties, MQTT_PROP_RESPONSE_TOPIC);
    result.correlation = bytesIn(properties, MQTT_PROP_CORRELATION_DATA);
    result.properties = pairsIn(properties);
    Q_EMIT static_cast<Mqtt*>(self)->came(result);
}

void Mqtt::onPublish(mosquitto*, void* self, int number, int reason, const mosquitto_property*) {
    Q_EMIT static_cast<Mqtt*>(self)->acknowledged(
        number, reason >= MQTT_RC_UNSPECIFIED ? QString(mosquitto_reason_string(reason)) : QString());
}

void Mqtt::onLog(mosquitto*, void* self, int level, const char* text) {
    if (level == MOSQ_LOG_ERR)
        static_cast<Mqtt*>(self)->m_lastError = QString::fromUtf8(text);
}
