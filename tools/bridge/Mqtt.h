// The connection to the broker, in the event loop: libmosquitto's socket is watched, nothing waits.
#pragma once

#include "Configuration.h"

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QSocketNotifier>
#include <QString>
#include <QTimer>

#include <memory>

struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

/// A message of the broker, either way.
struct MqttMessage {
    QString topic;
    QByteArray payload;
    int qos = 0;
    bool isRetained = false;
    QByteArray contentType;
    QByteArray responseTopic;
    QByteArray correlation;
    int expirySeconds = 0; ///< 0: it stays good
    QMap<QByteArray, QByteArray> properties;
};

/// A connection that is made again for ever, after a pause that grows from half a second to 30 s.
///
/// Each connection is a new client of libmosquitto: what it had not got through is not sent again by it, since nobody but
/// the bridge's own queue knows what is still to be sent, and in which order. The broker's session does outlive it.
///
/// Thread: the event loop's. Each attempt looks the broker up and connects in a thread that ends with that: a broker that
///         cannot be reached delays nobody.
class Mqtt : public QObject {
    Q_OBJECT
public:
    /// The will is published by the broker when the connection ends without close().
    Mqtt(const QString& client, const BrokerConfiguration& broker, int sessionSeconds, const MqttMessage& will,
         QObject* parent = nullptr);
    ~Mqtt() override;

    void open();

    /// Says goodbye, and is not connected again.
    void close();

    bool isConnected() const { return m_isConnected; }

    /// Hands a message to the connection: its number, for acknowledged(). -1 when there is no connection, or it has just
    /// broken; or, with the reason in `refusal`, when this message can never be sent.
    int publish(const MqttMessage& message, QString* refusal = nullptr);

    void subscribe(const QString& filter, int qos);

    /// While held, nothing is read: the broker keeps it.
    void hold(bool isHeld);

Q_SIGNALS:
    void connected();

    /// Once for each connection that was there, and for each attempt that came to nothing.
    void disconnected(const QString& reason);
    void came(const MqttMessage& message);

    /// The broker has that message of QoS 1; `refusal` is not empty when it does not want it.
    void acknowledged(int number, const QString& refusal);

private:
    static void onConnect(mosquitto*, void* self, int reason, int flags, const mqtt5__property*);
    static void onDisconnect(mosquitto*, void* self, int reason, const mqtt5__property*);
    static void onMessage(mosquitto*, void* self, const mosquitto_message*, const mqtt5__property*);
    static void onPublish(mosquitto*, void* self, int number, int reason, const mqtt5__property*);
    static void onLog(mosquitto*, void* self, int level, const char* text);

    void connectNow();
    void watch(int result);
    void read();
    void write();
    void watchWriting();
    void end(const QString& reason);

    const QByteArray m_client;
    const BrokerConfiguration m_broker;
    const int m_sessionSeconds;
    const MqttMessage m_will;

    std::shared_ptr<mosquitto> m_mosquitto; // an attempt's thread may outlive this object
    std::unique_ptr<QSocketNotifier> m_readable;
    std::unique_ptr<QSocketNotifier> m_writable;
    QTimer m_housekeeping;
    QTimer m_attempt;
    QTimer m_again;
    int m_pauseMs;
    bool m_isConnected = false;
    bool m_isClosed = false;
    bool m_isHeld = false;
    QString m_lastError; // of libmosquitto's log
    QString m_reason;    // why the connection ended, as the broker or the library said
};
