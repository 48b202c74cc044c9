// Publishes many events in one go when it is asked to, and counts those that come. One process of it is the publisher,
// another one the receiver.
#include <VelApplication>
#include <VelModule>

#include <QDBusAbstractAdaptor>
#include <QDBusConnectionInterface>

class BurstModule : public VelModule {
    Q_OBJECT
public:
    BurstModule();

    bool init() override {
        return getParameters().contains("deaf") || subscribeEvent("burst", this, SLOT(take(VelEvent)));
    }

    /// How many of them were taken for sending; they are all on the bus when it returns.
    int publish(int events);

    int received() const { return m_received; }

public Q_SLOTS:
    void take(VelEvent event) {
        Q_UNUSED(event)
        ++m_received;
    }

private:
    int m_received = 0;
};

class BurstAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit BurstAdaptor(BurstModule* module) : QDBusAbstractAdaptor(module), m_module(*module) {}

public Q_SLOTS:
    int publish(int events) { return m_module.publish(events); }
    int received() { return m_module.received(); }

private:
    BurstModule& m_module;
};

BurstModule::BurstModule() : VelModule("Burst") {
    new BurstAdaptor(this);
}

int BurstModule::publish(int events) {
    int taken = 0;
    for (int number = 1; number <= events; ++number)
        taken +=
            notifyEvent("burst", {{"number", number},
                                  {"isLast", number == events},
                                  {"ratio", 2.5},
                                  {"tags", QStringList{"red", "green", "blue"}},
                                  {"text", "a text as long as a line of a page, to be of the size that events have"}});
    m_connection.interface()->isServiceRegistered("org.freedesktop.DBus"); // answered after all of them were taken in
    return taken;
}

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    BurstModule module;
    return application.exec();
}

#include "BurstModule.moc"
