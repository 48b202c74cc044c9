// Modules of other machines, on this machine's bus as if they ran here.
//
// Presence is compared, never counted: a module is on the bus while the broker is there, its machine's state names a
// connection, and its own retained message names the same one. Whatever was missed, the next message repairs.
#include "ImportedModules.h"

#include "Log.h"
#include "Payload.h"

#include "bus/BusNames.h"
#include "wire/Json.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

namespace {

const char failed[] = DBUS_ERROR_FAILED;
constexpr int limitLookMs = 100;
constexpr int conflictMs = 500;

void refuse(LocalBus& bus, DBusMessage* call, const char* error, const QString& text) {
    if (!dbus_message_get_no_reply(call))
        bus.send(wire::made(dbus_message_new_error(call, error, text.toUtf8().constData())).get());
}

QString connectionIn(const QByteArray& payload) {
    return QJsonDocument::fromJson(payload).object().value("connection").toString();
}

// What the module tells of itself says where it is, too: `velctl list` shows it.
void addMachine(DBusMessage* call, QByteArray& payload, const QString& machine) {
    const QByteArray end = R"(]}]})";
    if (!dbus_message_has_path(call, "/vel/info") || !dbus_message_has_member(call, "GetAll") ||
        !payload.startsWith(R"({"body":[{"type":"a{sv}","value":[)") || !payload.endsWith(end))
        return;
    const bool isEmpty = payload.at(payload.size() - end.size() - 1) == '[';
    payload.chop(end.size());
    payload += (isEmpty ? "" : ",") + QByteArray(R"(["Machine",{"type":"s","value":)") + wire::jsonString(machine) +
               "}]" + end;
}

} // namespace

ImportedModule::ImportedModule(const QString& name, const QString& machine) : m_name(name), m_machine(machine) {}

void ImportedModule::setPresent(bool isPresent) {
    if (isPresent == (m_bus != nullptr))
        return;
    if (!isPresent) {
        Q_EMIT left();
        m_bus->disconnect(this);
        m_bus.release()->deleteLater(); // it may be on the stack; what it has to send is with the bus
        m_isOwner = m_isInConflict = false;
        return;
    }
    m_bus = std::make_unique<LocalBus>();
    QString reason;
    if (!m_bus->open(reason)) {
        logError(QString("cannot put '%1' on the bus: %2").arg(m_name, reason));
        m_bus.reset();
        return;
    }
    connect(m_bus.get(), &LocalBus::callCame, this, &ImportedModule::called);
    connect(m_bus.get(), &LocalBus::signalCame, this, &ImportedModule::takeSignal);
    m_bus->ask("AddMatch", {QString("type='signal',sender='%1',interface='%1',member='NameOwnerChanged',arg0='%2'")
                                .arg(DBUS_INTERFACE_DBUS, vel::bus::serviceName(m_name))});
    requestName();
}

void ImportedModule::requestName() {
    const auto take = [this, of = m_bus.get()](DBusMessage* answer) {
        quint32 result = 0;
        if (of != m_bus.get() || !answer ||
            !dbus_message_get_args(answer, nullptr, DBUS_TYPE_UINT32, &result, DBUS_TYPE_INVALID))
            return;
        m_isOwner = result == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER || result == DBUS_REQUEST_NAME_REPLY_ALREADY_OWNER;
        if (m_isOwner)
            logInfo(QString("'%1' on '%2' is here").arg(m_name, m_machine));
        // It may be this bridge's own connection from before, which is just ending.
        if (!m_isOwner && !m_isInConflict)
            QTimer::singleShot(conflictMs, m_bus.get(), [this] { tellConflict(); });
        m_isInConflict = !m_isOwner;
    };
    m_bus->ask("RequestName", {vel::bus::serviceName(m_name)}, take, DBUS_NAME_FLAG_DO_NOT_QUEUE);
}

void ImportedModule::tellConflict() {
    if (m_isInConflict)
        logError(
            QString("cannot put '%1' of '%2' on the bus: there is a module of that name on this machine; it is left "
                    "out while that runs")
                .arg(m_name, m_machine));
}

void ImportedModule::takeSignal(DBusMessage* signal) {
    const char *name = nullptr, *before = nullptr, *now = nullptr;
    if (!dbus_message_is_signal(signal, DBUS_INTERFACE_DBUS, "NameOwnerChanged") ||
        !dbus_message_has_sender(signal, DBUS_SERVICE_DBUS) ||
        !dbus_message_get_args(signal, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &before, DBUS_TYPE_STRING,
                               &now, DBUS_TYPE_INVALID))
        return;
    if (name == vel::bus::serviceName(m_name) && *now == '\0' && !m_isOwner)
        requestName();
}

ImportedModules::ImportedModules(Link& link)
    : m_link(link), m_correlationPrefix(QUuid::createUuid().toRfc4122().toHex().left(8) + '-') {
    const auto& imports = link.configuration.imports;
    for (auto import = imports.begin(); import != imports.end(); ++import) {
        m_machines[import.key()];
        for (const QString& name : import->modules) {
            auto& module = m_modules[name];
            module = std::make_unique<ImportedModule>(name, import.key());
            ImportedModule* const imported = module.get();
            connect(imported, &ImportedModule::called, this,
                    [this, imported](DBusMessage* call) { forward(imported, call); });
            connect(imported, &ImportedModule::left, this, [this, imported] { failCallsOf(imported); });
        }
    }
    m_limits.setInterval(limitLookMs);
    connect(&m_limits, &QTimer::timeout, this, &ImportedModules::lookAtLimits);
}

void ImportedModules::connected() {
    for (auto machine = m_machines.begin(); machine != m_machines.end(); ++machine) {
        m_link.mqtt.subscribe(Topic{Topic::Answer, machine.key(), m_link.machine(), {}}.text(), 0);
        m_link.mqtt.subscribe(Topic{Topic::Module, machine.key(), "+", {}}.text(), 1);
        m_link.mqtt.subscribe(Topic{Topic::State, machine.key(), {}, {}}.text(), 1);
    }
}

void ImportedModules::disconnected() {
    for (auto machine = m_machines.begin(); machine != m_machines.end(); ++machine) {
        *machine = Machine();
        compare(machine.key());
    }
}

void ImportedModules::take(const Topic& topic, const MqttMessage& message) {
    const auto machine = m_machines.find(topic.machine);
    if (machine == m_machines.end())
        return;
    switch (topic.kind) {
    case Topic::Answer:
        return topic.first == m_link.machine() ? answer(message) : void();
    case Topic::State:
        machine->connection = connectionIn(message.payload);
        return compare(topic.machine);
    case Topic::Module:
        if (m_modules.count(topic.first) == 0)
            return;
        machine->modules[topic.first] = connectionIn(message.payload);
        return compare(topic.machine);
    default:
        return;
    }
}

void ImportedModules::compare(const QString& machine) {
    const Machine& known = m_machines[machine];
    for (const auto& [name, module] : m_modules) {
        if (module->machine() == machine)
            module->setPresent(!known.connection.isEmpty() && known.modules.value(name) == known.connection);
    }
}

void ImportedModules::forward(ImportedModule* module, DBusMessage* call) {
    LocalBus& bus = *module->bus();
    if (dbus_message_has_interface(call, DBUS_INTERFACE_PEER)) { // asks for a process of this machine: that is here
        if (dbus_message_has_member(call, "Ping") && !dbus_message_get_no_reply(call))
            return bus.send(wire::made(dbus_message_new_method_return(call)).get());
        return refuse(bus, call, DBUS_ERROR_UNKNOWN_METHOD, "the module runs on another machine");
    }
    const LimitConfiguration& limits = m_link.configuration.limits;
    const QString whyNot = whyNotToSend(call);
    const QString object = QString("cannot call '%1' on '%2': ").arg(module->name(), module->machine());
    if (!whyNot.isEmpty())
        return refuse(bus, call, DBUS_ERROR_NOT_SUPPORTED, object + whyNot);
    if (!m_link.mqtt.isConnected())
        return refuse(bus, call, failed, object + "the broker is not reached");
    if (m_pending.size() >= static_cast<size_t>(limits.pendingCalls))
        return refuse(bus, call, DBUS_ERROR_LIMITS_EXCEEDED, object + "too many calls wait for an answer");
    MqttMessage message;
    message.payload = callPayload(call, module->name());
    if (message.payload.size() > limits.payloadBytes)
        return refuse(bus, call, DBUS_ERROR_LIMITS_EXCEEDED,
                      object + QString("it takes %1 bytes, and no more than %2 are allowed")
                                   .arg(message.payload.size())
                                   .arg(limits.payloadBytes));
    message.topic =
        Topic{Topic::Call, module->machine(), module->name(), QString::fromUtf8(dbus_message_get_member(call))}.text();
    message.contentType = callContentType;
    message.expirySeconds = std::max(1, limits.callMs / 1000);
    message.properties.insert("machine", m_link.machine().toUtf8());
    if (!dbus_message_get_no_reply(call)) {
        message.responseTopic = Topic{Topic::Answer, module->machine(), m_link.machine(), {}}.text().toUtf8();
        message.correlation = m_correlationPrefix + QByteArray::number(++m_lastCall);
    }
    QString refusal;
    if (m_link.mqtt.publish(message, &refusal) < 0)
        return refuse(bus, call, failed, object + (refusal.isEmpty() ? "the broker is not reached" : refusal));
    ++m_sent;
    if (message.correlation.isEmpty())
        return;
    m_pending[message.correlation] = {module, wire::Message(dbus_message_ref(call)),
                                      m_link.clock.elapsed() + limits.callMs};
    if (!m_limits.isActive())
        m_limits.start();
}

void ImportedModules::answer(const MqttMessage& message) {
    const auto found = m_pending.find(message.correlation);
    if (found == m_pending.end())
        return; // too late
    const Pending pending = std::move(found->second);
    m_pending.erase(found);
    LocalBus& bus = *pending.module->bus();
    const QString object =
        QString("cannot use the answer of '%1' on '%2': ").arg(pending.module->name(), pending.module->machine());
    if (message.payload.size() > m_link.configuration.limits.payloadBytes)
        return refuse(bus, pending.call.get(), DBUS_ERROR_LIMITS_EXCEEDED,
                      object + QString("it takes %1 bytes").arg(message.payload.size()));
    try {
        QByteArray payload = message.payload;
        addMachine(pending.call.get(), payload, pending.module->machine());
        bus.send(answerIn(payload, pending.call.get()).get());
    } catch (const wire::Error& error) {
        refuse(bus, pending.call.get(), DBUS_ERROR_INCONSISTENT_MESSAGE, object + error.reason);
    }
}

void ImportedModules::failCallsOf(const ImportedModule* module) {
    for (auto pending = m_pending.begin(); pending != m_pending.end();) {
        if (pending->second.module != module) {
            ++pending;
            continue;
        }
        refuse(*module->bus(), pending->second.call.get(), failed,
               QString("cannot call '%1' on '%2': %3; whether it was done is not known")
                   .arg(module->name(), module->machine(),
                        m_link.mqtt.isConnected() ? QString("the module or its machine has gone")
                                                  : QString("the broker is not reached")));
        pending = m_pending.erase(pending);
    }
}

void ImportedModules::lookAtLimits() {
    const qint64 now = m_link.clock.elapsed();
    for (auto pending = m_pending.begin(); pending != m_pending.end();) {
        if (pending->second.endsAt > now) {
            ++pending;
            continue;
        }
        const ImportedModule& module = *pending->second.module;
        refuse(*module.bus(), pending->second.call.get(), DBUS_ERROR_NO_REPLY,
               QString("cannot call '%1' on '%2': no answer came within %3 s; whether it was done is not known")
                   .arg(module.name(), module.machine())
                   .arg(m_link.configuration.limits.callMs / 1000.0));
        pending = m_pending.erase(pending);
    }
    if (m_pending.empty())
        m_limits.stop();
}

bool ImportedModules::isOwnConnection(const char* uniqueName) const {
    return uniqueName && std::any_of(m_modules.begin(), m_modules.end(), [uniqueName](const auto& module) {
               return module.second->uniqueName() == uniqueName;
           });
}

QStringList ImportedModules::onBus() const {
    QStringList texts;
    for (const auto& [name, module] : m_modules) {
        if (module->isOnBus())
            texts += QString("%1 on %2").arg(name, module->machine());
    }
    return texts;
}

QStringList ImportedModules::inConflict() const {
    QStringList texts;
    for (const auto& [name, module] : m_modules) {
        if (module->isInConflict())
            texts += QString("%1 on %2").arg(name, module->machine());
    }
    return texts;
}

QStringList ImportedModules::machines() const {
    QStringList online;
    for (auto machine = m_machines.begin(); machine != m_machines.end(); ++machine) {
        if (!machine->connection.isEmpty())
            online += machine.key();
    }
    return online;
}
