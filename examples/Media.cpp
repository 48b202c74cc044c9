// A music player: reacts to another module's event, calls without waiting, and can be turned off.
#include <VelApplication>
#include <VelLogger>
#include <VelModule>
#include <VelModuleMain>
#include <VelUnixSignals>

#include <QDBusAbstractAdaptor>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <csignal>

class Media : public VelModule {
    Q_OBJECT
public:
    Media();

    bool check() override {
        logger("")->info("check: all there");
        return true; // so there is nothing to deploy
    }

    bool init() override { return subscribeEvent("station_changed", this, SLOT(pauseForRadio(VelEvent))); }

    bool run() override {
        logger("")->info("run: ready to play");
        return true;
    }

    bool stop() override {
        logger("")->info("stop: the music is off");
        return true;
    }

    int volume() const { return m_volume; }

    void setVolume(int volume) {
        m_volume = volume;
        logger("")->debug(QString("the mixer goes to %1 of 100").arg(volume));
        logger("")->info(QString("the volume is %1").arg(volume));
    }

    bool restoreDataToDefault() override {
        m_volume = 50;
        return false; // takes effect without a reboot
    }

public Q_SLOTS:
    void pauseForRadio(const VelEvent& event) {
        const QStringList genres = event.getArgument("genres").toStringList();
        logger("")->info("pausing: the radio plays " + genres.join(" and "));
        auto* watcher = new QDBusPendingCallWatcher(asyncRemoteCall("Tuner", "strength"), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher] {
            const QDBusPendingReply<int> reply = *watcher;
            logger("")->info(QString("asynchronous call: the radio's strength is %1").arg(reply.value()));
            watcher->deleteLater();
        });
    }

private:
    int m_volume = 50;
};

class MediaAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit MediaAdaptor(Media* media) : QDBusAbstractAdaptor(media), m_media(*media) {}

public Q_SLOTS:
    int volume() { return m_media.volume(); }
    void setVolume(int volume) { m_media.setVolume(volume); }
    void turnOff() { m_media.exit(); } // asks the supervisor; stops by itself when there is none

private:
    Media& m_media;
};

Media::Media() : VelModule("Media") {
    new MediaAdaptor(this);
}

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Media media;
    velStopOnSignals(media, {SIGTERM, SIGINT});
    return application.exec();
}

#include "Media.moc"
