// A radio tuner: answers calls, publishes an event, and refuses what it cannot do.
#include <VelApplication>
#include <VelException>
#include <VelExceptionNet>
#include <VelLogger>
#include <VelModule>
#include <VelModuleMain>
#include <VelUnixSignals>

#include <QDBusAbstractAdaptor>

#include <csignal>

struct Station {
    double megahertz;
    bool stereo;
    QString name;
    QStringList genres;
};

class Tuner : public VelModule {
    Q_OBJECT
public:
    Tuner();

    bool init() override {
        return subscribeEvent("station_changed", this, SLOT(stationChanged(VelEvent))) &&
               subscribeEvent("prepare_save_restore", this, SLOT(stopForSaveRestore(VelEvent))) &&
               subscribeEvent("restore_done", this, SLOT(postOperationForRestore(VelEvent)));
    }

    bool run() override {
        logger("")->info("run: the aerial is up");
        return true;
    }

    QString tune(int preset) {
        if (preset < 1 || preset > m_presets.size())
            throw new VelException(this, VelException::InvalidArgs, QString("there is no preset %1").arg(preset));
        const Station& station = m_presets.at(preset - 1);
        notifyEvent("station_changed", {{"preset", preset},
                                        {"stereo", station.stereo},
                                        {"megahertz", station.megahertz},
                                        {"name", station.name},
                                        {"genres", station.genres}});
        return station.name;
    }

public Q_SLOTS:
    void stationChanged(const VelEvent& event) { // a publisher hears its own events too
        logger("")->info("my own event came back: " + event.getEvtName());
    }

private:
    const QList<Station> m_presets = {{91.2, false, "City Voice", {"news"}},
                                      {98.5, true, "Radio Harbour", {"jazz", "talk"}}};
};

// What other modules can call: each slot is a method on the bus.
class TunerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit TunerAdaptor(Tuner* tuner) : QDBusAbstractAdaptor(tuner), m_tuner(*tuner) {}

public Q_SLOTS:
    QString tune(int preset) {
        QString name;
        velGuarded([&] { name = m_tuner.tune(preset); }); // what it throws has answered the call already
        return name;
    }
    int strength() { return 72; }
    QVariantMap reception() { return {{"strength", strength()}, {"noise", 0.25}}; }

private:
    Tuner& m_tuner;
};

Tuner::Tuner() : VelModule("Tuner") {
    new TunerAdaptor(this);
}

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Tuner tuner;
    velStopOnSignals(tuner, {SIGTERM, SIGINT});
    return application.exec();
}

#include "Tuner.moc"
