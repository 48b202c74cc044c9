// A test program with a bus of its own.
#include "testing/BusTest.h"

#include "app/VelApplication.h"
#include "bus/BusNames.h"
#include "events/VelDBusTypes.h"
#include "testing/BuiltProgram.h"

#include <QDBusMessage>
#include <QFile>
#include <QTest>

#include <memory>

namespace bustest {

namespace {

std::unique_ptr<PrivateBus> privateBus;

} // namespace

int runOnPrivateBus(int argc, char** argv, const std::function<int(int, char**)>& test) {
    privateBus = std::make_unique<PrivateBus>();
    if (!privateBus->isRunning()) {
        qCritical("cannot start '%s'; nothing was tested", qPrintable(PrivateBus::program()));
        return 1;
    }
    int applicationArgc = 1; // the test's own arguments are not the module's
    VelApplication application(applicationArgc, argv);
    // Qt holds back what arrives before a connection's first turn of the event loop, and may deliver it after what
    // came later. The tests rely on order, so that turn is over before they begin.
    settle(QDBusConnection::sessionBus());
    const int failures = test(argc, argv);
    privateBus.reset();
    return failures;
}

PrivateBus& bus() {
    return *privateBus;
}

QDBusConnection connectAs(const QString& name) {
    return QDBusConnection::connectToBus(privateBus->address(), name);
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

QString program(const QString& name) {
    return builtProgram(name);
}

} // namespace bustest
