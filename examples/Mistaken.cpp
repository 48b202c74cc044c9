// A module with a mistake in it: --mistake=slot, class, name, value, unsendable, check or event.
#include <VelApplication>
#include <VelModule>
#include <VelModuleMain>

#include <stdexcept>

// Has slots of its own, and no Q_OBJECT: Qt knows none of them.
class Listener : public QObject {
public:
    void heard(VelEvent) {}
};

class Mistaken : public VelModule {
    Q_OBJECT
public:
    Mistaken() : VelModule("Mistaken") {}

    bool check() override {
        if (makes("check"))
            throw std::runtime_error("no such file");
        return true;
    }

    bool init() override {
        if (makes("slot"))
            return subscribeEvent("station_changed", this, SLOT(stationChangd(VelEvent)));
        if (makes("class"))
            return subscribeEvent("station_changed", &m_listener, SLOT(heard(VelEvent)));
        if (makes("name"))
            return subscribeEvent("station-changed", this, SLOT(stationChanged(VelEvent)));
        return subscribeEvent("station_changed", this, SLOT(stationChanged(VelEvent)));
    }

    bool run() override {
        if (makes("value")) // a float is no type of the bus
            notifyEvent("station_changed", {{"stations", QVariantList{"City Voice", QVariantMap{{"MHz", 91.2f}}}}});
        if (makes("event"))
            notifyEvent("station_changed");
        else
            exit(); // the work is done
        return true;
    }

public Q_SLOTS:
    void stationChanged(VelEvent) {
        exit();
        throw std::runtime_error("no such station");
    }

private:
    bool makes(const char* mistake) { return getParameters().value("mistake") == mistake; }

    Listener m_listener;
};

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Mistaken mistaken;
    return application.exec();
}

#include "Mistaken.moc"
