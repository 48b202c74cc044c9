// Calls to other modules by name, through proxies that are made on first use and kept.
//
// The cache holds only proxies that were valid when they were made, and keeps them when their module leaves the bus:
// a proxy follows its name, so it is valid again when the module is back.
#include "module/VelModule.h"

#include "bus/VelDBusInterface.h"
#include "errors/VelException.h"
#include "bus/DBusContextKeeper.h"
#include "log/GuardedLog.h"

#include <memory>

namespace {

// Qt delivers a call to a name of this very process inside the call itself: the slot's exceptions come out here. What
// such a slot meant as an error reply becomes the thrown text that a reply from elsewhere would be.
template <typename Call>
auto callAsIfRemote(VelModule* self, Call&& call) {
    const vel::DBusContextKeeper keeper(self);
    try {
        return call();
    } catch (VelException* thrown) {
        const std::unique_ptr<VelException> exception(thrown);
        throw QString(exception->m_message);
    }
}

void requireValid(const VelDBusInterface& proxy) {
    if (!proxy.isValid())
        throw proxy.lastError().message();
}

} // namespace

VelDBusInterface& VelModule::proxyTo(const QString& moduleName) {
    if (VelDBusInterface* known = m_dbusInterfaces.value(moduleName))
        return *known;
    auto proxy = std::make_unique<VelDBusInterface>(moduleName, QDBusConnection::sessionBus(), nullptr);
    if (!proxy->isValid()) {
        const QString text = QStringLiteral("Invalid interface: is module '%1' started ?").arg(moduleName);
        vel::logWarning([&] { return text; });
        throw text;
    }
    m_dbusInterfaces.insert(moduleName, proxy.get());
    return *proxy.release();
}

QDBusMessage VelModule::syncRemoteCall(const QString& moduleName, const QString& methodName,
                                       const QList<QVariant>& args) {
    VelDBusInterface& proxy = proxyTo(moduleName);
    if (!proxy.isValid())
        vel::logWarning(
            [&] { return QStringLiteral("Got invalid DBus interface for module %1 (memory)").arg(moduleName); });
    requireValid(proxy);
    try {
        return callAsIfRemote(this, [&] { return proxy.call(methodName, args); });
    } catch (const QString& text) {
        vel::logWarning([&] {
            return QStringLiteral("Error in syncRemoteCall (%1::%2 : %3)")
                .arg(moduleName, methodName, proxy.lastError().message());
        });
        throw QString(text);
    }
}

QDBusPendingCall VelModule::asyncRemoteCall(const QString& moduleName, const QString& methodName,
                                            const QList<QVariant>& args) {
    VelDBusInterface& proxy = proxyTo(moduleName);
    requireValid(proxy);
    return callAsIfRemote(this, [&] { return proxy.asyncCall(methodName, args); });
}

bool VelModule::remoteCallWithCallback(const QString& moduleName, const QString& methodName, QObject* receiver,
                                       const char* callback, const char* errCallback, const QList<QVariant>& args) {
    VelDBusInterface& proxy = proxyTo(moduleName);
    requireValid(proxy);
    return callAsIfRemote(this,
                          [&] { return proxy.callWithCallback(methodName, args, receiver, callback, errCallback); });
}

bool VelModule::isModuleConnected(const QString& moduleName) {
    return VelDBusInterface(moduleName, QDBusConnection::sessionBus(), nullptr).isValid();
}
