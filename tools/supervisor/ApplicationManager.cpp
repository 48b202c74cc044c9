// From the requests, by call and by signal, to the modules and their data. Nothing here waits for anybody: what takes time
// is answered later.
#include "ApplicationManager.h"

#include "Log.h"
#include "SupervisorAdaptor.h"

#include <QDBusConnectionInterface>
#include <QEventLoop>

#include <utility>

namespace {

const QString upEventPrefix = QStringLiteral("end_of_init_");

} // namespace

ApplicationManager::ApplicationManager(const Configuration& configuration, Guardian& guardian)
    : VelModule("ApplicationManager"), m_fleet(configuration, guardian),
      m_saveRestore(configuration, m_fleet, guardian, *this), m_progress(m_fleet) {
    new SupervisorAdaptor(this);
    connect(&m_fleet, &Fleet::changed, this, &ApplicationManager::answerRequests);
    connect(&m_fleet, &Fleet::stopEventWanted, this,
            [this](const QString& module) { notifyEvent("stop_module_" + module); });
    connect(&m_saveRestore, &SaveRestore::finished, this, [this] {
        for (const auto& work : std::exchange(m_postponed, {}))
            work();
    });
}

ApplicationManager::~ApplicationManager() = default;

bool ApplicationManager::init() {
    if (!m_connection.isConnected()) {
        logError("cannot supervise: there is no session bus; nothing was started");
        return false;
    }
    // Two that start at the same moment can both find themselves alone; the bus gives the name to one of them.
    if (m_connection.interface()->serviceOwner(getDbusServiceName()).value() != m_connection.baseService()) {
        logError("cannot supervise: another process has the name 'ApplicationManager'; nothing was started");
        return false;
    }
    m_connection.connect(QString(), "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local", "Disconnected", this,
                         SLOT(noteBusLoss()));
    bool isSubscribed = subscribeEvent("stop_save_restore_OK", this, SLOT(noteSaveAnswer(VelEvent)));
    for (const auto& module : m_fleet.modules())
        isSubscribed &= subscribeEvent(upEventPrefix + module->name(), this, SLOT(noteModuleUp(VelEvent)));
    return isSubscribed;
}

bool ApplicationManager::run() {
    if (m_isAskedToEnd)
        exit(); // it was asked when nothing could be stopped yet
    else
        m_fleet.start();
    return true;
}

bool ApplicationManager::stop() {
    m_progress.showEnd();
    QEventLoop loop;
    connect(&m_fleet, &Fleet::changed, &loop, [this, &loop] {
        if (m_fleet.isDown())
            loop.quit();
    });
    m_isBusLost ? m_fleet.kill() : m_fleet.stop();
    m_saveRestore.abandon("the supervisor is told to end");
    if (!m_fleet.isDown())
        loop.exec();
    return !m_isBusLost;
}

void ApplicationManager::askToEnd() {
    if (!std::exchange(m_isAskedToEnd, true))
        return exit();
    logWarning("asked to end again: kills what has not ended yet");
    m_fleet.kill();
}

void ApplicationManager::noteBusLoss() {
    logError("cannot supervise any more: the session bus is gone; every module is killed");
    m_isBusLost = true;
    exit();
    if (getState() == "STOP")
        m_fleet.kill();
}

void ApplicationManager::noteModuleUp(VelEvent event) {
    if (SupervisedModule* module = m_fleet.find(event.getEvtName().mid(upEventPrefix.size())))
        module->noteUp();
}

void ApplicationManager::noteSaveAnswer(VelEvent) {
    m_saveRestore.takeAnswer(message().service()); // the sender itself, not the name that it says it has
}

void ApplicationManager::startModule(const QString& name) {
    const LateAnswer answer = answerLater();
    if (SupervisedModule* module = findOrRefuse("start", name, answer)) {
        whenIdle([=] {
            module->want();
            request(module, true, answer);
        });
    }
}

void ApplicationManager::stopModule(const QString& name) {
    const LateAnswer answer = answerLater();
    if (name == getModuleName()) {
        answer.give("ends all modules, then itself");
        return askToEnd();
    }
    if (!m_fleet.find(name) && notifyEvent("stop_module_" + name)) {
        // One that somebody else has started, and that asks for its own end, must find it here.
        logInfo(QString("asks '%1' to stop, which is not in the configuration").arg(name));
        return answer.give(QString("'%1' is asked to stop; it is not in the configuration").arg(name));
    }
    if (SupervisedModule* module = findOrRefuse("stop", name, answer)) {
        whenIdle([=] {
            module->stop();
            request(module, false, answer);
        });
    }
}

void ApplicationManager::restartModule(const QString& name) {
    const LateAnswer answer = answerLater();
    if (SupervisedModule* module = findOrRefuse("restart", name, answer)) {
        whenIdle([=] {
            module->stop();
            module->want();
            request(module, true, answer);
        });
    }
}

void ApplicationManager::saveOrRestore(SaveRestore::Operation operation, const QStringList& names) {
    const LateAnswer answer = answerLater();
    if (getState() == "STOP")
        answer.refuse("cannot save or restore: the supervisor is told to end; nothing was done");
    else
        m_saveRestore.begin(operation, names, answer);
}

QStringList ApplicationManager::listModules() const {
    QStringList lines;
    for (const auto& module : m_fleet.modules())
        lines += module->description();
    return lines;
}

LateAnswer ApplicationManager::answerLater() {
    if (!calledFromDBus())
        return {};
    setDelayedReply(true);
    return {message(), m_connection};
}

SupervisedModule* ApplicationManager::findOrRefuse(const QString& verb, const QString& name, const LateAnswer& answer) {
    SupervisedModule* module = m_fleet.find(name);
    if (!module)
        answer.refuse(
            QString("cannot %1 '%2': there is no such module in the configuration; nothing was done").arg(verb, name));
    return module;
}

// A module that is frozen, or whose data is being copied, is left alone until that is over.
void ApplicationManager::whenIdle(std::function<void()> work) {
    if (m_saveRestore.isBusy())
        m_postponed.push_back(std::move(work));
    else
        work();
}

void ApplicationManager::request(SupervisedModule* module, bool wantsUp, const LateAnswer& answer) {
    m_requests.push_back({module, wantsUp, answer});
    answerRequests();
}

void ApplicationManager::answerRequests() {
    for (std::size_t index = 0; index < m_requests.size();) {
        if (isAnswered(m_requests[index]))
            m_requests.erase(m_requests.begin() + static_cast<std::ptrdiff_t>(index));
        else
            ++index;
    }
}

bool ApplicationManager::isAnswered(const Request& request) const {
    using State = SupervisedModule::State;
    const SupervisedModule& module = *request.module;
    const QString verb = request.wantsUp ? "start" : "stop";
    const auto refuse = [&](const QString& reason, const QString& consequence) {
        request.answer.refuse(QString("cannot %1 '%2': %3; %4").arg(verb, module.name(), reason, consequence));
    };
    switch (module.state()) {
    case State::Up:
        if (request.wantsUp)
            request.answer.give(QString("'%1' is up, process %2").arg(module.name()).arg(module.processId()));
        else
            refuse("somebody else has started it again", "it is up");
        return true;
    case State::Down:
        if (request.wantsUp)
            refuse("it " + module.lastEnd(), "it stays down");
        else
            request.answer.give(QString("'%1' %2").arg(module.name(), module.lastEnd()));
        return true;
    case State::Pausing:
        if (request.wantsUp)
            refuse("it " + module.lastEnd(), "it is tried again");
        return request.wantsUp;
    case State::Waiting:
        if (!request.wantsUp || m_fleet.downAmongNeeded(module).isEmpty())
            return false;
        refuse(QString("it waits for '%1', which is down").arg(m_fleet.downAmongNeeded(module)),
               "it starts when that is up");
        return true;
    case State::Starting:
    case State::Stopping:
        return false;
    }
    return false;
}
