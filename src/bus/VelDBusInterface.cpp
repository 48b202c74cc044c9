// The proxy: QDBusInterface with names made from a module name, and failures as thrown texts.
//
// QDBusInterface introspects its peer while it is constructed, with whatever path and service it was given, and
// libdbus aborts the process on an invalid one. Built on a connection that is not connected, the same proxy is merely
// invalid. So a proxy whose address cannot be right gets such a connection.
#include "bus/VelDBusInterface.h"

#include "bus/BusNames.h"
#include "bus/DBusContextKeeper.h"
#include "bus/OwnObject.h"
#include "errors/ErrorName.h"
#include "errors/VelException.h"
#include "events/Marshallable.h"
#include "log/GuardedLog.h"
#include "log/SafeText.h"

#include <memory>
#include <optional>

namespace bus = vel::bus;

namespace {

QDBusConnection connectionFor(const QString& moduleName, const QString& interfaceName,
                              const QDBusConnection& connection) {
    if (bus::isReachable(moduleName) && (interfaceName.isEmpty() || bus::isValidInterfaceName(interfaceName)))
        return connection;
    return QDBusConnection(QStringLiteral("vel: no such module can exist"));
}

// Why Qt must not be given a call, and what it can be given instead so that it refuses in its own way, with its own text
// in lastError() and in the error slot.
struct Refusal {
    QString reason;
    QVariantList instead; // empty: there is nothing that Qt would refuse for this reason
};

std::optional<Refusal> refusalOf(const QString& method, const QVariantList& args) {
    if (!bus::isValidMemberName(method))
        return Refusal{QStringLiteral("Invalid method name: %1").arg(method), {}};
    if (vel::isMarshallable(args))
        return std::nullopt;
    const vel::Misfit misfit = vel::findMisfit(args);
    if (misfit.hasNoForm) // Qt refuses it as an argument; inside of one libdbus aborts
        return Refusal{misfit.reason, {misfit.value}};
    return Refusal{misfit.reason, {}};
}

QString nameOf(const VelDBusInterface& proxy, const QString& method) {
    return proxy.path().mid(1) + QLatin1Char('.') + method;
}

void logRefusal(const VelDBusInterface& proxy, const QString& method, const QString& reason) {
    vel::logError([&] {
        return QStringLiteral("cannot call %1: %2; nothing was sent")
            .arg(vel::quoted(nameOf(proxy, method)), vel::safeText(reason));
    });
}

// The arguments to give to Qt. Throws the reason where nothing can be given to it.
QVariantList argumentsForQt(const VelDBusInterface& proxy, const QString& method, const QVariantList& args) {
    const std::optional<Refusal> refusal = refusalOf(method, args);
    if (!refusal)
        return args;
    logRefusal(proxy, method, refusal->reason);
    if (refusal->instead.isEmpty())
        throw QString(refusal->reason);
    return refusal->instead;
}

// What a slot of this very process meant as an error reply, as a reply from elsewhere would be.
QDBusMessage errorReplyOf(VelException* thrown) {
    const std::unique_ptr<VelException> exception(thrown);
    return exception ? QDBusMessage::createError(vel::errorNameOf(exception->m_errorType), exception->m_message)
                     : QDBusMessage::createError(QDBusError::Failed, QString());
}

// Calls to a service of this very process run synchronously, so the slot's exception surfaces here. It becomes the
// thrown text that a reply from elsewhere would be.
template <typename Call>
auto callAsIfRemote(const VelDBusInterface& proxy, Call&& call) {
    const vel::DBusContextKeeper keeper(bus::ownObjectAt(proxy.path()));
    try {
        return call();
    } catch (VelException* thrown) {
        throw errorReplyOf(thrown).errorMessage();
    }
}

// Calls a slot for errors from the event loop, as Qt does.
class ErrorSlot : public QObject {
    Q_OBJECT
public:
    static void callLater(QObject* receiver, const char* slot, const QDBusMessage& reply) {
        if (!receiver || !slot)
            return;
        ErrorSlot sender;
        connect(&sender, SIGNAL(failed(QDBusError, QDBusMessage)), receiver, slot, Qt::QueuedConnection);
        Q_EMIT sender.failed(QDBusError(reply), reply);
    }

Q_SIGNALS:
    void failed(const QDBusError& error, const QDBusMessage& reply);
};

// A peer's error may already have arrived; it has a sender, so it stays in the pending call, as it would a moment later.
bool failedToSend(const QDBusPendingCall& pending, const QDBusConnection& connection) {
    if (!pending.isError())
        return false;
    const QString sender = pending.reply().service();
    return sender.isEmpty() || sender == connection.baseService(); // this process itself, which answers at once
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
    // Qt lets "method.signature" name an overload: for a blocking call the part before the dot is the name.
    const QString name = method.left(method.indexOf(QLatin1Char('.')));
    const QVariantList sent = argumentsForQt(*this, name, args);
    const QDBusMessage reply = callAsIfRemote(*this, [&] {
        return sent.isEmpty() ? QDBusInterface::call(QDBus::AutoDetect, name)
                              : callWithArgumentList(QDBus::AutoDetect, name, sent);
    });
    if (reply.type() != QDBusMessage::ReplyMessage)
        throw reply.errorMessage();
    return reply;
}

QDBusPendingCall VelDBusInterface::asyncCall(const QString& method, const QList<QVariant>& args) {
    const QVariantList sent = argumentsForQt(*this, method, args);
    const QDBusPendingCall pending = callAsIfRemote(*this, [&] {
        return sent.isEmpty() ? QDBusInterface::asyncCall(method) : asyncCallWithArgumentList(method, sent);
    });
    if (failedToSend(pending, connection()))
        throw pending.error().message();
    return pending;
}

bool VelDBusInterface::callWithCallback(const QString& method, const QList<QVariant>& args, QObject* receiver,
                                        const char* returnMethod, const char* errorMethod) {
    QVariantList sent;
    try {
        sent = argumentsForQt(*this, method, args);
    } catch (const QString&) {
        return false; // and said why
    }
    const vel::DBusContextKeeper keeper(bus::ownObjectAt(path()));
    bool queued = true;
    try {
        queued = QDBusInterface::callWithCallback(method, sent, receiver, returnMethod, errorMethod);
    } catch (VelException* thrown) { // a slot of this very process, as in callAsIfRemote()
        ErrorSlot::callLater(receiver, errorMethod, errorReplyOf(thrown));
    } catch (const QString& text) { // the same slot, whose own call to another module has failed
        ErrorSlot::callLater(receiver, errorMethod, QDBusMessage::createError(QDBusError::Failed, text));
    }
    if (!queued) {
        // A proxy to an impossible name has a connection of its own, which leads nowhere.
        const bool hasNoBus = !connection().isConnected() && bus::isValidObjectPath(path());
        logRefusal(*this, method, hasNoBus ? QStringLiteral("there is no bus") : lastError().message());
    }
    return queued;
}

VelDBusInterface& VelDBusInterface::operator=(const VelDBusInterface& other) {
    setParent(other.parent());
    return *this;
}

#include "VelDBusInterface.moc"
