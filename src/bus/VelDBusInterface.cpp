// The proxy: QDBusInterface with names made from a module name, and failures as thrown texts.
//
// QDBusInterface introspects its peer while it is constructed, with whatever path and service it was given, and
// libdbus aborts the process on an invalid one. Built on a connection that is not connected, the same proxy is merely
// invalid. So a proxy whose address cannot be right gets such a connection.
#include "bus/VelDBusInterface.h"

#include "bus/BusNames.h"
#include "events/Marshallable.h"

#include <algorithm>

namespace bus = vel::bus;

namespace {

QDBusConnection connectionFor(const QString& moduleName, const QString& interfaceName,
                              const QDBusConnection& connection) {
    if (bus::isReachable(moduleName) && bus::isValidInterfaceName(interfaceName))
        return connection;
    return QDBusConnection(QStringLiteral("vel: no such module can exist"));
}

// Why a call cannot even be put into a message; empty when it can. Qt lets "method.signature" name an overload; without a
// dot all of it is the name.
QString reasonNotToSend(const QString& method, const QList<QVariant>& args) {
    if (!bus::isValidMemberName(method.left(method.indexOf(QLatin1Char('.')))))
        return QStringLiteral("Invalid method name: %1").arg(method);
    const auto misfit = std::find_if_not(args.cbegin(), args.cend(), vel::isMarshallable);
    if (misfit == args.cend())
        return QString();
    return QStringLiteral("Argument %1 of method %2 has no D-Bus form (type %3)")
        .arg(QString::number(misfit - args.cbegin() + 1), method,
             misfit->isValid() ? QString::fromLatin1(misfit->typeName()) : QStringLiteral("invalid"));
}

} // namespace

VelDBusInterface::VelDBusInterface(QObject* parent)
    : VelDBusInterface(bus::defaultModuleName(), QDBusConnection::sessionBus(), parent) {}

VelDBusInterface::VelDBusInterface(const VelDBusInterface& other, QObject* parent)
    : QDBusInterface(other.service(), other.path(), other.interface(), other.connection(), parent) {}

VelDBusInterface::VelDBusInterface(const QString& moduleName, const QDBusConnection& connection, QObject* parent)
    : VelDBusInterface(moduleName, bus::commonInterface(), connection, parent) {}

VelDBusInterface::VelDBusInterface(const QString& moduleName, const QString& interfaceName,
                                   const QDBusConnection& connection, QObject* parent)
    : QDBusInterface(bus::serviceName(moduleName), bus::objectPath(moduleName), interfaceName,
                     connectionFor(moduleName, interfaceName, connection), parent) {}

VelDBusInterface::~VelDBusInterface() = default;

QDBusMessage VelDBusInterface::call(const QString& method, const QList<QVariant>& args) {
    if (const QString reason = reasonNotToSend(method, args); !reason.isEmpty())
        throw reason;
    const QDBusMessage reply = args.isEmpty() ? QDBusInterface::call(QDBus::AutoDetect, method)
                                              : callWithArgumentList(QDBus::AutoDetect, method, args);
    if (reply.type() != QDBusMessage::ReplyMessage)
        throw reply.errorMessage();
    return reply;
}

QDBusPendingCall VelDBusInterface::asyncCall(const QString& method, const QList<QVariant>& args) {
    if (const QString reason = reasonNotToSend(method, args); !reason.isEmpty())
        throw reason;
    const QDBusPendingCall pending =
        args.isEmpty() ? QDBusInterface::asyncCall(method) : asyncCallWithArgumentList(method, args);
    // Only a failure to send is thrown. A peer's error may have arrived by now too, on Qt's D-Bus thread, if it was
    // quick and this thread was not: that one has a sender, and stays in the pending call as it would a moment later.
    if (pending.isError() && pending.reply().service().isEmpty())
        throw pending.error().message();
    return pending;
}

bool VelDBusInterface::callWithCallback(const QString& method, const QList<QVariant>& args, QObject* receiver,
                                        const char* returnMethod, const char* errorMethod) {
    if (!reasonNotToSend(method, args).isEmpty())
        return false;
    return QDBusInterface::callWithCallback(method, args, receiver, returnMethod, errorMethod);
}

VelDBusInterface& VelDBusInterface::operator=(const VelDBusInterface& other) {
    setParent(other.parent());
    return *this;
}
