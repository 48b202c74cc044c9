// A module whose cache holds as many proxies as is asked for. It calls itself: Qt delivers that inside the call, so that
// what is measured is the library's way to the proxy and Qt's to the slot, without a bus.
#pragma once

#include "bus/VelDBusInterface.h"
#include "module/VelModule.h"

#include <QDBusAbstractAdaptor>

class BenchModule : public VelModule {
    Q_OBJECT
public:
    BenchModule();

    /// Fills the cache with proxies to modules that are not there, beside the one to this module.
    void keepProxies(int number) {
        syncRemoteCall(m_moduleName, QStringLiteral("answer")); // its own
        for (auto proxy = m_dbusInterfaces.begin(); proxy != m_dbusInterfaces.end();) {
            if (proxy.key() == m_moduleName) {
                ++proxy;
                continue;
            }
            delete proxy.value();
            proxy = m_dbusInterfaces.erase(proxy);
        }
        const QDBusConnection none(QStringLiteral("no bus"));
        for (int index = 1; index < number; ++index) {
            const QString name = QStringLiteral("Module%1").arg(index);
            m_dbusInterfaces.insert(name, new VelDBusInterface(name, none, nullptr));
        }
    }

    const QMap<QString, VelDBusInterface*>& proxies() const { return m_dbusInterfaces; }
};

class BenchAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit BenchAdaptor(BenchModule* module) : QDBusAbstractAdaptor(module) {}

public Q_SLOTS:
    int answer() { return 42; }
    QString text() { return QStringLiteral("text"); }
    QVariantMap map() { return {}; }
};

inline BenchModule::BenchModule() : VelModule(QStringLiteral("Bench")) {
    new BenchAdaptor(this);
}

/// The one of the process.
BenchModule& benchModule();
