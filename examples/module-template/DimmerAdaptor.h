// What other modules can call: each slot is a method on the bus.
#pragma once

#include <QDBusAbstractAdaptor>

class Dimmer;

class DimmerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface") // the one interface of all modules
public:
    explicit DimmerAdaptor(Dimmer* module);

public Q_SLOTS:
    int brightness();
    void setBrightness(int percent);

private:
    Dimmer& m_module;
};
