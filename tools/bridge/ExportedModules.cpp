// Modules of this machine that others may see and call.
#include "ExportedModules.h"

#include "Log.h"
#include "Payload.h"

#include "bus/BusNames.h"

ExportedModules::ExportedModules(Link& link) : m_link(link), m_rate(link.configuration.limits.callsPerSecond) {
    connect(&link.bus, &LocalBus::signalCame, this, &ExportedModules::takeSignal);
    for (const QString& module : link.configuration.exportedModules) {
        const QString service = vel::bus::serviceName(module);
        link.bus.ask("AddMatch",
                     {QString("type='signal',sender='%1',interface='%1',member='NameOwnerChanged',arg0='%2'")
                          .arg(DBUS_INTERFACE_DBUS, service)});
        link.bus.ask("GetNameOwner", {service}, [this, module](DBusMessage* answer) {
            const char* owner = nullptr;
            if (answer && dbus_message_get_type(answer) == DBUS_MESSAGE_TYPE_METHOD_RETURN &&
                dbus_message_get_args(answer, nullptr, DBUS_TYPE_STRING, &owner, DBUS_TYPE_INVALID))
                setOwner(module, QString::fromUtf8(owner));
        });
    }
}

void ExportedModules::connected(const QString& connection) {
    m_connection = connection;
    m_link.mqtt.subscribe(Topic{Topic::Call, m_link.machine(), "+", "+"}.text(), 0);
    m_link.mqtt.subscribe(Topic{Topic::Module, m_link.machine(), "+", {}}.text(), 1); // what an earlier bridge left
    for (const QString& module : m_link.configuration.exportedModules)
        tell(module);
}

void ExportedModules::takeSignal(DBusMessage* signal) {
    const char *name = nullptr, *before = nullptr, *now = nullptr;
    if (!dbus_message_is_signal(signal, DBUS_INTERFACE_DBUS, "NameOwnerChanged") ||
        !dbus_message_has_sender(signal, DBUS_SERVICE_DBUS) ||
        !dbus_message_get_args(signal, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &before, DBUS_TYPE_STRING,
                               &now, DBUS_TYPE_INVALID))
        return;
    for (const QString& module : m_link.configuration.exportedModules) {
        if (vel::bus::serviceName(module) == name)
            setOwner(module, QString::fromUtf8(now));
    }
}

void ExportedModules::setOwner(const QString& module, const QString& owner) {
    if (m_owners.value(module) == owner)
        return;
    if (owner.isEmpty())
        m_owners.remove(module);
    else
        m_owners[module] = owner;
    tell(module);
}

void ExportedModules::tell(const QString& module) {
    MqttMessage message;
    message.topic = Topic{Topic::Module, m_link.machine(), module, {}}.text();
    message.qos = 1;
    message.isRetained = true;
    if (m_owners.contains(module))
        message.payload = R"({"connection":")" + m_connection.toUtf8() + R"("})";
    m_link.mqtt.publish(message);
}

void ExportedModules::take(const Topic& topic, const MqttMessage& message) {
    if (topic.machine != m_link.machine())
        return;
    if (topic.kind == Topic::Call)
        call(topic, message);
    else if (topic.kind == Topic::Module && !message.payload.isEmpty() && !m_owners.contains(topic.first))
        tell(topic.first);
}

void ExportedModules::call(const Topic& topic, const MqttMessage& message) {
    const Configuration& configuration = m_link.configuration;
    const QString responseTopic = QString::fromUtf8(message.responseTopic);
    // An answer is written in this machine's name: not wherever a caller likes.
    const bool wantsAnswer = !responseTopic.isEmpty() && isAnswerTopic(responseTopic, m_link.machine());
    const auto answer = [this, responseTopic, correlation = message.correlation,
                         wantsAnswer](const QByteArray& payload) {
        if (!wantsAnswer)
            return;
        MqttMessage reply;
        reply.topic = responseTopic;
        reply.payload = payload;
        reply.contentType = answerContentType;
        reply.correlation = correlation;
        reply.properties.insert("machine", m_link.machine().toUtf8());
        m_link.mqtt.publish(reply);
    };
    const auto refuse = [&](const char* error, const QString& reason) {
        ++m_refused;
        if (m_refusal.first())
            logError(QString("cannot call '%1.%2' for another machine: %3; see 'refused' in the status")
                         .arg(topic.first, topic.second, reason));
        answer(errorPayload(error, reason));
    };
    if (!responseTopic.isEmpty() && !wantsAnswer)
        return refuse(DBUS_ERROR_ACCESS_DENIED, QString("its answer is wanted in '%1'").arg(responseTopic));
    if (!configuration.exportedModules.contains(topic.first))
        return refuse(DBUS_ERROR_ACCESS_DENIED, "the module is not exported");
    if (!m_owners.contains(topic.first))
        return answer(
            errorPayload(DBUS_ERROR_SERVICE_UNKNOWN, QString("the module '%1' is not running").arg(topic.first)));
    if (message.payload.size() > configuration.limits.payloadBytes || m_pending >= configuration.limits.pendingCalls ||
        !m_rate.allows(m_link.clock.elapsed()))
        return refuse(DBUS_ERROR_LIMITS_EXCEEDED, "there are too many calls, or it is too large");
    try {
        const wire::Message call = callIn(message.payload, topic.first, topic.second);
        ++m_called;
        m_refusal.over();
        if (!wantsAnswer) {
            dbus_message_set_no_reply(call.get(), true);
            return m_link.bus.send(call.get());
        }
        ++m_pending;
        const auto take = [this, answer, largest = configuration.limits.payloadBytes](DBusMessage* reply) {
            --m_pending;
            if (!reply)
                return answer(errorPayload(DBUS_ERROR_NO_REPLY, "the module did not answer in time"));
            if (const QString whyNot = whyNotToSend(reply); !whyNot.isEmpty())
                return answer(errorPayload(DBUS_ERROR_NOT_SUPPORTED, whyNot));
            const QByteArray payload = answerPayload(reply);
            answer(payload.size() <= largest
                       ? payload
                       : errorPayload(DBUS_ERROR_LIMITS_EXCEEDED,
                                      QString("the answer takes %1 bytes, and no more than %2 are allowed")
                                          .arg(payload.size())
                                          .arg(largest)));
        };
        m_link.bus.call(call.get(), take, configuration.limits.callMs);
    } catch (const wire::Error& error) {
        refuse(DBUS_ERROR_INVALID_ARGS, error.reason);
    }
}
