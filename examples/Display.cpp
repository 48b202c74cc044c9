// A display: deploys its data first, calls other modules, and takes part in the presentation.
#include <VelApplication>
#include <VelException>
#include <VelExceptionNet>
#include <VelLogger>
#include <VelModule>
#include <VelModuleMain>
#include <VelUnixSignals>

#include <QDBusAbstractAdaptor>
#include <QDBusError>

#include <csignal>

class Display : public VelModule {
    Q_OBJECT
public:
    Display();

    bool check() override {
        logger("")->info("check: no layout yet");
        return false; // so deploy() is next
    }

    bool deploy() override {
        logger("")->info("deploy: the layout is made");
        return true;
    }

    bool init() override {
        return subscribeEvent("station_changed", this, SLOT(stationChanged(VelEvent))) &&
               subscribeEvent("presentation_closed", this, SLOT(stopWebclientEvent(VelEvent)));
    }

    bool run() override {
        logger("")->info("run: the screen is on");
        return true;
    }

    void presentation_loaded() override { logger("")->info("presentation: now " + getState()); }
    void presentation_stop() override { logger("")->info("presentation: now " + getState()); }

    bool restoreDataToDefault() override { return true; } // the old layout stays until a reboot

    QString show(int preset) {
        try {
            const QDBusMessage reply = syncRemoteCall("Tuner", "tune", {preset});
            const QString station = reply.arguments().value(0).toString();
            logger("")->info("blocking call: the station is " + station);
            remoteCallWithCallback("Media", "volume", this, SLOT(volumeKnown(int)), SLOT(callFailed(QDBusError)));
            return station;
        } catch (const QString& text) {
            // A failed call throws its text; here it becomes this module's own answer.
            logger("")->info("blocking call refused: " + text);
            throw new VelException(this, VelException::InvalidArgs, text);
        }
    }

public Q_SLOTS:
    void stationChanged(const VelEvent& event) {
        const QVariantMap arguments = event.getArguments();
        for (auto one = arguments.cbegin(); one != arguments.cend(); ++one) {
            const bool isText = one->canConvert<QString>();
            const QString text = isText ? one->toString() : one->toStringList().join(", ");
            logger("")->info(QString("station_changed: %1 %2 = %3").arg(one->typeName(), one.key(), text));
        }
    }
    void volumeKnown(int volume) { logger("")->info(QString("callback call: the volume is %1").arg(volume)); }
    void callFailed(const QDBusError& error) { logger("")->warning("callback call: " + error.message()); }
};

class DisplayAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit DisplayAdaptor(Display* display) : QDBusAbstractAdaptor(display), m_display(*display) {}

public Q_SLOTS:
    QString show(int preset) {
        QString station;
        velGuarded([&] { station = m_display.show(preset); });
        return station;
    }

private:
    Display& m_display;
};

Display::Display() : VelModule("Display") {
    new DisplayAdaptor(this);
}

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Display display;
    velStopOnSignals(display, {SIGTERM, SIGINT});
    return application.exec();
}

#include "Display.moc"
