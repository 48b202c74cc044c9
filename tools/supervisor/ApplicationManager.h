// The supervisor as a module: the name that every other module asks to be stopped by.
#pragma once

#include "Fleet.h"
#include "LateAnswer.h"
#include "ProgressLine.h"
#include "SaveRestore.h"

#include <VelModule>

#include <deque>
#include <functional>
#include <vector>

class ApplicationManager : public VelModule {
    Q_OBJECT
public:
    /// `launcher` is null when no module is forked.
    ApplicationManager(const Configuration& configuration, Guardian& guardian, Launcher* launcher);
    ~ApplicationManager() override;

    bool init() override;
    bool run() override;

    /// Ends all modules before it returns; the event loop goes on meanwhile.
    ///
    /// Result:  false when the bus was lost, so that nobody could be asked to end.
    bool stop() override;

    /// A request to end, however often it comes: the second one kills what has not ended yet.
    void askToEnd();

    /// The methods on the bus. Each answers the call in progress when its work is done.
    void startModule(const QString& name);
    void stopModule(const QString& name);
    void restartModule(const QString& name);
    void save(const QString& names) { saveOrRestore(SaveRestore::Save, names); }
    void restore(const QString& names) { saveOrRestore(SaveRestore::Restore, names); }
    QStringList listModules() const;
    QList<QVariantMap> modules() const;

    /// Stops this process, as a terminal's Ctrl-Z does, once nobody is frozen who would wait for it; not when it was told to
    /// go on before that.
    void suspend();
    void goOn();

public Q_SLOTS:
    void noteModuleUp(VelEvent event);
    void noteSaveAnswer(VelEvent event);
    void noteBusLoss();

private:
    /// A call that is answered when its module has come into a state.
    struct Request {
        SupervisedModule* module;
        bool wantsUp;
        int endsBefore; // of the module, when it was asked for
        LateAnswer answer;
    };

    LateAnswer answerLater();
    SupervisedModule* findOrRefuse(const QString& verb, const QString& name, const LateAnswer& answer);
    void whenIdle(const QString& what, const LateAnswer& answer, std::function<void()> work);
    void doPostponed();
    void stopStranger(const QString& name, const LateAnswer& answer);
    void suspendIfNotNeeded();
    void request(SupervisedModule* module, bool wantsUp, int endsBefore, const LateAnswer& answer);
    bool isAnswered(const Request& request) const;
    void answerRequests();
    void saveOrRestore(SaveRestore::Operation operation, const QString& text);

    Fleet m_fleet;
    SaveRestore m_saveRestore;
    ProgressLine m_progress;
    std::vector<Request> m_requests;
    std::deque<std::function<void()>> m_postponed; // until a save or a restore is over
    bool m_isToSuspend = false;
    bool m_isAskedToEnd = false;
    bool m_isBusLost = false;
};
