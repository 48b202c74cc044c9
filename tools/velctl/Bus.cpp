// The connection to the bus, and the few questions that are put to the bus daemon.
#include "Bus.h"

#include "Failure.h"
#include "ModuleNames.h"

namespace velctl {

namespace {

const char busDaemon[] = "org.freedesktop.DBus";

QDBusConnection connectWithin(const TimeLimit& limit) {
    const TimeLimit::Guard guard(
        limit, QString("cannot reach the bus: it does not answer; gave up after %1").arg(limit.text()));
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, "velctl");
}

} // namespace

Bus::Bus(const TimeLimit& limit) : m_limit(limit), m_connection(connectWithin(limit)) {
    if (!m_connection.isConnected())
        throw Failure{NoBus,
                      QString("cannot reach the bus '%1': %2; is DBUS_SESSION_BUS_ADDRESS that of the "
                              "modules")
                          .arg(qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"), m_connection.lastError().message())};
}

QDBusMessage Bus::ask(const QString& method, const QVariantList& arguments, const QString& interface) {
    QDBusMessage question = QDBusMessage::createMethodCall(busDaemon, "/org/freedesktop/DBus", interface, method);
    question.setArguments(arguments);
    question.setAutoStartService(false);
    const QDBusMessage answer = m_connection.call(question, QDBus::Block, m_limit.forBusDaemon());
    if (!m_connection.isConnected())
        throw Failure{NoBus, "cannot go on: the bus ended the connection; the bus is gone, or refused what "
                             "was sent"};
    if (answer.type() == QDBusMessage::ErrorMessage && !isFromBusDaemon(answer))
        throw Failure{TimeLimitReached,
                      QString("cannot ask the bus for '%1': it does not answer; gave up").arg(method)};
    return answer;
}

QStringList Bus::modules() {
    QStringList modules;
    for (const QString& service : ask("ListNames", {}).arguments().value(0).toStringList()) {
        const QString module = moduleOfService(service);
        if (!module.isEmpty())
            modules += module;
    }
    modules.sort();
    return modules;
}

QString Bus::ownerOf(const QString& module) {
    const QDBusMessage answer = ask("GetNameOwner", {serviceOf(module)});
    return answer.type() == QDBusMessage::ReplyMessage ? answer.arguments().value(0).toString() : QString();
}

qint64 Bus::processOf(const QString& uniqueName) {
    const QDBusMessage answer = ask("GetConnectionUnixProcessID", {uniqueName});
    return answer.type() == QDBusMessage::ReplyMessage ? answer.arguments().value(0).toLongLong() : 0;
}

void Bus::send(const QDBusMessage& message) {
    if (!m_connection.send(message))
        throw Failure{Failed,
                      QString("cannot send '%1': %2").arg(message.member(), m_connection.lastError().message())};
    flush();
}

void Bus::flush() {
    ask("GetId", {});
}

QDBusMessage Bus::callTo(const QString& module, const QString& interface, const QString& method) {
    QDBusMessage call = QDBusMessage::createMethodCall(serviceOf(module), pathOf(module), interface, method);
    call.setAutoStartService(false);
    return call;
}

bool Bus::isFromBusDaemon(const QDBusMessage& answer) {
    return answer.service() == QLatin1String(busDaemon);
}

} // namespace velctl
