// The question to an event loop is an introspection. A ping would not do: Qt's own thread answers it, also while the event
// loop hangs.
#include "Bus.h"

#include "bus/BusNames.h"

#include <VelEvent>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>

#include <limits>

namespace {

const char busDaemon[] = "org.freedesktop.DBus";
constexpr int noLimit = std::numeric_limits<int>::max();

void call(const QDBusMessage& message, QObject* context, std::function<void(const QDBusMessage&)> take) {
    auto* reply = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(message, noLimit), context);
    QObject::connect(reply, &QDBusPendingCallWatcher::finished, context, [reply, take = std::move(take)] {
        reply->deleteLater();
        take(reply->reply());
    });
}

} // namespace

void publish(const QString& event, const QVariantMap& arguments, const QString& receiver) {
    const QString path = vel::bus::objectPath("ApplicationManager");
    QDBusMessage signal = receiver.isEmpty()
                              ? QDBusMessage::createSignal(path, vel::bus::commonInterface(), event)
                              : QDBusMessage::createTargetedSignal(receiver, path, vel::bus::commonInterface(), event);
    signal << QVariant::fromValue(VelEvent(event, arguments, QString("")));
    QDBusConnection::sessionBus().send(signal);
}

void askBus(const QString& method, const QString& name, QObject* context, std::function<void(const QVariant&)> take) {
    QDBusMessage question = QDBusMessage::createMethodCall(busDaemon, "/org/freedesktop/DBus", busDaemon, method);
    question << name;
    call(question, context, [take = std::move(take)](const QDBusMessage& reply) {
        take(reply.type() == QDBusMessage::ReplyMessage ? reply.arguments().value(0) : QVariant());
    });
}

void askEventLoop(const QString& service, const QString& path, QObject* context, std::function<void(Answer)> take) {
    const QDBusMessage question =
        QDBusMessage::createMethodCall(service, path, "org.freedesktop.DBus.Introspectable", "Introspect");
    call(question, context, [take = std::move(take)](const QDBusMessage& reply) {
        if (reply.type() == QDBusMessage::ReplyMessage)
            take(Answer::FromTheLoop);
        else
            take(reply.service().isEmpty() || reply.service() == busDaemon ? Answer::None : Answer::FromTheModule);
    });
}
