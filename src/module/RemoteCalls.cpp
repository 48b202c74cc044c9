// Calls to other modules by name, through proxies that are made on first use and kept.
//
// The cache holds only proxies that were valid when they were made, and keeps them when their module leaves the bus:
// a proxy follows its name, so it is valid again when the module is back.
#include "module/VelModule.h"

#include "bus/VelDBusInterface.h"
#include "log/GuardedLog.h"

#include <memory>

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

// A proxy that was valid once may have lost its module since.
VelDBusInterface& VelModule::validProxyTo(const QString& moduleName) {
    VelDBusInterface& proxy = proxyTo(moduleName);
    if (!proxy.isValid())
        throw proxy.lastError().message();
    return proxy;
}

QDBusMessage VelModule::syncRemoteCall(const QString& moduleName, const QString& methodName,
                                       const QList<QVariant>& args) {
    VelDBusInterface& proxy = proxyTo(moduleName);
    if (!proxy.isValid()) {
        vel::logWarning(
            [&] { return QStringLiteral("Got invalid DBus interface for module %1 (memory)").arg(moduleName); });
        throw proxy.lastError().message();
    }
    try {
        return proxy.call(methodName, args);
    } catch (const QString& text) {
        vel::logWarning(
            [&] { return QStringLiteral("Error in syncRemoteCall (%1::%2 : %3)").arg(moduleName, methodName, text); });
        throw QString(text);
    }
}

QDBusPendingCall VelModule::asyncRemoteCall(const QString& moduleName, const QString& methodName,
                                            const QList<QVariant>& args) {
    return validProxyTo(moduleName).asyncCall(methodName, args);
}

bool VelModule::remoteCallWithCallback(const QString& moduleName, const QString& methodName, QObject* receiver,
                                       const char* callback, const char* errCallback, const QList<QVariant>& args) {
    return validProxyTo(moduleName).callWithCallback(methodName, args, receiver, callback, errCallback);
}

bool VelModule::isModuleConnected(const QString& moduleName) {
    return VelDBusInterface(moduleName, QDBusConnection::sessionBus(), nullptr).isValid();
}
