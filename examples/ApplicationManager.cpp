// The supervisor: stops modules on request and starts the maintenance operations. Modules know its name.
#include "SaveRestore.h"

#include <VelApplication>
#include <VelException>
#include <VelExceptionNet>
#include <VelLogger>
#include <VelModule>

#include <QDBusAbstractAdaptor>

class ApplicationManager : public VelModule {
    Q_OBJECT
public:
    ApplicationManager();

    bool init() override {
        return subscribeEvent("", this, SLOT(noteStart(VelEvent))) && // every event there is
               subscribeEvent("reset_default_done", this, SLOT(noteDefaultReset(VelEvent))) &&
               subscribeEvent("reset_factory_done", this, SLOT(noteFactoryReset(VelEvent))) &&
               subscribeEvent("stop_save_restore_OK", &m_saveRestore, SLOT(noteAnswer(VelEvent)));
    }

    bool run() override {
        logger("")->info("run: supervising");
        return true;
    }

    void stopModule(const QString& module) {
        logger("")->info("stopping " + module);
        notifyEvent("stop_module_" + module);
    }

    // The others first, for they may want to say good-bye; exit() stops a supervisor at once.
    void shutDown() {
        for (const QString& module : qAsConst(m_started)) {
            if (module != getModuleName() && isModuleConnected(module))
                stopModule(module);
        }
        exit();
    }

    SaveRestore& saveRestore() { return m_saveRestore; }

public Q_SLOTS:
    void noteStart(VelEvent event) {
        const QString prefix = "end_of_init_";
        if (!event.getEvtName().startsWith(prefix))
            return;
        m_started += event.getEvtName().mid(prefix.size());
        logger("")->info(m_started.last() + " is up");
    }
    void noteDefaultReset(VelEvent event) {
        const bool needsReboot = event.getArgument("NeedReboot").toBool();
        logger("")->info(event.getArgument("ModuleName").toString() +
                         (needsReboot ? " is at its defaults after a reboot" : " is at its defaults"));
    }
    void noteFactoryReset(VelEvent event) {
        logger("")->info(event.getArgument("ModuleName").toString() + " is in its factory state");
    }

private:
    QStringList m_started;
    SaveRestore m_saveRestore{*this};
};

class ApplicationManagerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit ApplicationManagerAdaptor(ApplicationManager* manager)
        : QDBusAbstractAdaptor(manager), m_manager(*manager) {}

public Q_SLOTS:
    void stopModule(const QString& module) { m_manager.stopModule(module); }
    void shutDown() { m_manager.shutDown(); }
    void loadPresentation() { m_manager.notifyEvent("presentationLoaded"); }
    void closePresentation() { m_manager.notifyEvent("presentation_closed"); }
    void resetToDefault() { m_manager.notifyEvent("reset_data_default"); }
    void resetToFactory() { m_manager.notifyEvent("reset_data_factory"); }
    void setLogLevel(const QString& module, int level) {
        m_manager.notifyEvent("log_level_changed", {{"syslog_facility", module}, {"syslog_level", level}});
    }
    void traceMemory(const QString& module, bool on) {
        m_manager.notifyEvent(on ? "mtrace_on" : "mtrace_off", {{"module", module}});
    }
    void prepareSave(const QStringList& modules) { prepare(modules, SaveRestore::Save); }
    void prepareRestore(const QStringList& modules) { prepare(modules, SaveRestore::Restore); }
    void resumeModules() {
        velGuarded([&] { m_manager.saveRestore().resume(); });
    }

private:
    void prepare(const QStringList& modules, SaveRestore::Operation operation) {
        velGuarded([&] { m_manager.saveRestore().prepare(modules, operation); });
    }

    ApplicationManager& m_manager;
};

ApplicationManager::ApplicationManager() : VelModule("ApplicationManager") {
    new ApplicationManagerAdaptor(this);
}

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    ApplicationManager manager;
    return application.exec();
}

#include "ApplicationManager.moc"
