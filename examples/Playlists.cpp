// A keeper of data: saved, restored and reset with the system, and changed by a thread of its own.
#include <VelApplication>
#include <VelLogger>
#include <VelModule>
#include <VelModuleMain>
#include <VelUnixSignals>

#include <QDBusAbstractAdaptor>
#include <QFile>
#include <QThread>

#include <csignal>
#include <memory>

class Playlists : public VelModule {
    Q_OBJECT
public:
    Playlists();

    bool init() override {
        return subscribeEvent("prepare_save_restore", this, SLOT(stopForSaveRestore(VelEvent))) &&
               subscribeEvent("restore_done", this, SLOT(postOperationForRestore(VelEvent)));
    }

    // In a thread: the event loop stays free. In the critical section: no save finds half a list.
    void importFile(const QString& path) {
        waitForImport();
        m_import.reset(QThread::create([this, path] {
            beginCriticalSection();
            QFile file(path);
            if (file.open(QIODevice::ReadOnly))
                logger("")->info("import: reading");
            while (!file.readLine().isEmpty())
                ++m_tracks;
            logger("")->info(QString("import: done, %1 tracks").arg(m_tracks));
            endCriticalSection();
        }));
        m_import->start();
    }

    void preSaveForSaveRestore() override { logger("")->info(QString("pre-save: %1 tracks").arg(m_tracks)); }

    void postRestoreForSaveRestore() override { logger("")->info("post-restore: the lists are read again"); }

    void restoreDataToFactory() override {
        beginCriticalSection();
        m_tracks = 0;
        endCriticalSection();
    }

    bool stop() override {
        waitForImport();
        return true;
    }

private:
    void waitForImport() {
        if (m_import)
            m_import->wait();
    }

    int m_tracks = 0; // guarded by the critical section
    std::unique_ptr<QThread> m_import;
};

class PlaylistsAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit PlaylistsAdaptor(Playlists* playlists) : QDBusAbstractAdaptor(playlists), m_playlists(*playlists) {}

public Q_SLOTS:
    void importFile(const QString& path) { m_playlists.importFile(path); }

private:
    Playlists& m_playlists;
};

Playlists::Playlists() : VelModule("Playlists") {
    new PlaylistsAdaptor(this);
}

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Playlists playlists;
    velStopOnSignals(playlists, {SIGTERM, SIGINT});
    return application.exec();
}

#include "Playlists.moc"
