// A recorder: hears a setting, takes part in saves, and records in a thread of its own. docs/ shows parts of it.
#include <VelApplication>
#include <VelModule>
#include <VelModuleMain>

#include <QDBusArgument>
#include <QStringList>
#include <QThread>

#include <memory>

struct Section {
    explicit Section(VelModule& module) : m_module(module) { m_module.beginCriticalSection(); }
    ~Section() { m_module.endCriticalSection(); }
    VelModule& m_module;
};

class Recorder : public VelModule {
    Q_OBJECT
public:
    Recorder() : VelModule("Recorder") {}

    bool init() override {
        subscribeEvent("prepare_save_restore", this, SLOT(stopForSaveRestore(VelEvent)));
        subscribeEvent("restore_done", this, SLOT(postOperationForRestore(VelEvent)));
        return true;
    }

    bool run() override {
        m_recording.reset(QThread::create([this] {
            Section section(*this);
            m_titles << "the news"
                     << "the weather";
        }));
        m_recording->start();
        return subscribeEvent("recorder_settings", this, SLOT(settingsChanged(VelEvent)));
    }

    bool stop() override {
        m_recording->wait();
        return true;
    }

public Q_SLOTS:
    void settingsChanged(const VelEvent& event) {
        const QVariantMap map = qdbus_cast<QVariantMap>(event.getArgument("settings").value<QDBusArgument>());
        m_folder = map.value("folder").toString();
    }

private:
    QString m_folder;
    QStringList m_titles; // guarded by the critical section
    std::unique_ptr<QThread> m_recording;
};

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Recorder recorder;
    return application.exec();
}

#include "Recorder.moc"
