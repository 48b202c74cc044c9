// A test program with a bus of its own.
#include "testing/BusTest.h"

#include "bus/BusNames.h"
#include "events/VelDBusTypes.h"
#include "testing/BuiltProgram.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace bustest {

PrivateBus& bus() {
    return *PrivateBus::current();
}

QDBusConnection connectAs(const QString& name) {
    return QDBusConnection::connectToBus(bus().address(), name);
}

bool publish(const QDBusConnection& connection, const QString& moduleName, const QString& event,
             const QVariantMap& arguments) {
    registerCoreDBusTypes();
    waitForBus(QDBusConnection::sessionBus());
    QDBusMessage signal =
        QDBusMessage::createSignal(vel::bus::objectPath(moduleName), vel::bus::commonInterface(), event);
    signal << QVariant::fromValue(VelEvent(event, arguments, QString()));
    return connection.send(signal);
}

QDBusMessage call(const QDBusConnection& connection, const QString& moduleName, const QString& method,
                  const QVariantList& arguments) {
    QDBusMessage question = QDBusMessage::createMethodCall(
        vel::bus::serviceName(moduleName), vel::bus::objectPath(moduleName), vel::bus::commonInterface(), method);
    question.setArguments(arguments);
    return connection.call(question);
}

void waitForBus(const QDBusConnection& connection) {
    connection.call(QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/"),
                                                   QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
}

void settle(const QDBusConnection& connection) {
    waitForBus(connection);
    waitForBus(QDBusConnection::sessionBus()); // its answer comes after whatever was routed here before
    QCoreApplication::processEvents();
}

pid_t processOf(const QString& moduleName) {
    const uint process = QDBusConnection::sessionBus().interface()->servicePid(vel::bus::serviceName(moduleName));
    return static_cast<pid_t>(process);
}

QString program(const QString& name) {
    return builtProgram(name);
}

} // namespace bustest
