// A module whose cache holds as many proxies as is asked for. When it calls itself, Qt delivers that inside the call:
// what is measured then is the library's way to the proxy and Qt's to the slot, without a bus.
#pragma once

#include "bus/VelDBusInterface.h"
#include "module/VelModule.h"

#include <QDBusAbstractAdaptor>

#include <utility>

class BenchModule : public VelModule {
    Q_OBJECT
public:
    BenchModule();

    /// Fills the cache with proxies to modules that are not there, beside the one to this module.
    void keepProxies(int number) {
        VelDBusInterface* own = nullptr;
        syncRemoteCall(m_moduleName, QStringLiteral("answer")); // makes it
        std::swap(own, m_dbusInterfaces[m_moduleName]);
        qDeleteAll(m_dbusInterfaces);
        m_dbusInterfaces = {{m_moduleName, own}};
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
    QString echoText(const QString& text) { return text; }
    QVariantMap echoMap(const QVariantMap& map) { return map; }
};

inline BenchModule::BenchModule() : VelModule(QStringLiteral("Bench")) {
    new BenchAdaptor(this);
}
