// Calls as a program makes them that has Qt D-Bus and not this library.
//
//     proxy     QDBusInterface::call(), the proxy kept
//     message   a QDBusMessage for each call, sent by QDBusConnection::call()
//     new       a QDBusInterface for each call
#include "calls/QtPayload.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>

#include <memory>

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    measure::require(argc == 4, "usage: bench-calls-qt SERVICE PATH INTERFACE");
    const QString service = argv[1];
    const QString path = argv[2];
    const QString interface = argv[3];
    const QDBusConnection bus = QDBusConnection::sessionBus();

    return measure::serveCalls([&](const std::string& way, bool isText) -> measure::Turn {
        const QVariant value = payload(isText);
        if (way == "proxy") {
            const auto proxy = std::make_shared<QDBusInterface>(service, path, interface, bus);
            return {[=] { checkReply(proxy->call(method(isText), value), isText); }};
        }
        if (way == "message")
            return {[=] {
                QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method(isText));
                message << value;
                checkReply(bus.call(message), isText);
            }};
        if (way == "new")
            return {[=] {
                QDBusInterface proxy(service, path, interface, bus);
                checkReply(proxy.call(method(isText), value), isText);
            }};
        return {};
    });
}
