// From the requests, by call and by signal, to the modules and their data. Nothing here waits for anybody: what takes time
// is answered later.
#include "ApplicationManager.h"

#include "Bus.h"
#include "Log.h"
#include "SupervisorAdaptor.h"

#include "bus/BusNames.h"

#include <QDBusConnectionInterface>
#include <QEventLoop>

#include <algorithm>
#include <csignal>
#include <unistd.h>
#include <utility>

namespace {

const QString upEventPrefix = QStringLiteral("end_of_init_");

// Of calls that wait for their answer. Somebody who calls without end is refused, and not remembered.
constexpr std::size_t mostWaiting = 1000;

constexpr int longestNames = highestModuleCount * 256; // characters: every module once

} // namespace

ApplicationManager::ApplicationManager(const Configuration& configuration, Guardian& guardian, Launcher* launcher)
    : VelModule("ApplicationManager"), m_fleet(configuration, guardian, launcher),
      m_saveRestore(configuration, m_fleet, guardian), m_progress(m_fleet) {
    new SupervisorAdaptor(this);
    connect(&m_fleet, &Fleet::changed, this, &ApplicationManager::answerRequests);
    connect(&m_saveRestore, &SaveRestore::finished, this, &ApplicationManager::doPostponed);
    connect(&m_saveRestore, &SaveRestore::released, this, &ApplicationManager::suspendIfNotNeeded);
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
    doPostponed();
    for (const Request& request : std::exchange(m_requests, {}))
        request.answer.refuse(QString("cannot %1 '%2': the supervisor ends")
                                  .arg(request.wantsUp ? "start" : "stop", request.module->name()));
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
        whenIdle(QString("start '%1'").arg(name), answer, [=] {
            module->want();
            request(module, true, module->ends(), answer);
        });
    }
}

void ApplicationManager::stopModule(const QString& name) {
    const LateAnswer answer = answerLater();
    if (name == getModuleName()) {
        answer.give("ends all modules, then itself");
        return askToEnd();
    }
    SupervisedModule* module = m_fleet.find(name);
    if (!module)
        return stopStranger(name, answer);
    whenIdle(QString("stop '%1'").arg(name), answer, [=] {
        const int endsBefore = module->ends();
        module->stop();
        request(module, false, endsBefore, answer);
    });
}

// One that somebody else has started, and that asks for its own end, must find it here.
void ApplicationManager::stopStranger(const QString& name, const LateAnswer& answer) {
    const auto refuse = [name, answer] {
        answer.refuse(QString("cannot stop %1: there is no such module, neither in the configuration nor on the bus; "
                              "nothing was done")
                          .arg(quotedName(name)));
    };
    if (!vel::bus::isReachable(name))
        return refuse();
    askBus("GetNameOwner", vel::bus::serviceName(name), this, [name, answer, refuse](const QVariant& owner) {
        if (!owner.isValid())
            return refuse();
        publish("stop_module_" + name);
        logInfo(QString("asks '%1' to stop, which is not in the configuration").arg(name));
        answer.give(QString("'%1' is asked to stop; it is not in the configuration").arg(name));
    });
}

void ApplicationManager::restartModule(const QString& name) {
    const LateAnswer answer = answerLater();
    if (SupervisedModule* module = findOrRefuse("restart", name, answer)) {
        whenIdle(QString("restart '%1'").arg(name), answer, [=] {
            module->stop();
            module->want();
            request(module, true, module->ends(), answer);
        });
    }
}

void ApplicationManager::saveOrRestore(SaveRestore::Operation operation, const QString& text) {
    const LateAnswer answer = answerLater();
    const QString what = operation == SaveRestore::Save ? "save" : "restore";
    if (text.size() > longestNames)
        return answer.refuse(
            QString("cannot %1: the names of all modules are shorter than these %2 characters; nothing was done")
                .arg(what)
                .arg(text.size()));
    const QStringList names = text.simplified().split(' ', Qt::SkipEmptyParts);
    whenIdle(what, answer, [=] { m_saveRestore.begin(operation, names, answer); });
}

QStringList ApplicationManager::listModules() const {
    QStringList lines;
    for (const auto& module : m_fleet.modules())
        lines += module->description();
    return lines;
}

QList<QVariantMap> ApplicationManager::modules() const {
    QList<QVariantMap> details;
    for (const auto& module : m_fleet.modules())
        details += module->details();
    return details;
}

void ApplicationManager::suspend() {
    m_isToSuspend = true;
    suspendIfNotNeeded();
}

void ApplicationManager::goOn() {
    m_isToSuspend = false;
}

void ApplicationManager::suspendIfNotNeeded() {
    if (!m_isToSuspend || m_saveRestore.isNeeded())
        return;
    // What was sent is only queued; the bus has it when it has answered a question that was sent after it.
    askBus("NameHasOwner", getDbusServiceName(), this, [this](const QVariant&) {
        if (m_saveRestore.isNeeded() || !std::exchange(m_isToSuspend, false))
            return;
        ::kill(getpid(), SIGSTOP);
    });
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
        answer.refuse(QString("cannot %1 %2: there is no such module in the configuration; nothing was done")
                          .arg(verb, quotedName(name)));
    return module;
}

// A module that is frozen, or whose data is being copied, is left alone until that is over.
void ApplicationManager::whenIdle(const QString& what, const LateAnswer& answer, std::function<void()> work) {
    const auto refuse = [what, answer](const char* reason) {
        answer.refuse(QString("cannot %1: %2; nothing was done").arg(what, reason));
    };
    if (m_postponed.size() + m_requests.size() >= mostWaiting)
        return refuse("too many calls wait for their answer already");
    m_postponed.push_back([this, refuse, work = std::move(work)] {
        getState() == "STOP" ? refuse("the supervisor is told to end") : work();
    });
    doPostponed();
}

// Each of them may begin what the next one has to wait for.
void ApplicationManager::doPostponed() {
    while (!m_postponed.empty() && (!m_saveRestore.isBusy() || getState() == "STOP")) {
        const std::function<void()> work = std::move(m_postponed.front());
        m_postponed.pop_front();
        work();
    }
}

void ApplicationManager::request(SupervisedModule* module, bool wantsUp, int endsBefore, const LateAnswer& answer) {
    const Request request{module, wantsUp, endsBefore, answer};
    if (!isAnswered(request))
        m_requests.push_back(request);
}

void ApplicationManager::answerRequests() {
    m_requests.erase(std::remove_if(m_requests.begin(), m_requests.end(),
                                    [this](const Request& request) { return isAnswered(request); }),
                     m_requests.end());
}

bool ApplicationManager::isAnswered(const Request& request) const {
    using State = SupervisedModule::State;
    const SupervisedModule& module = *request.module;
    const auto refuse = [&](const QString& reason, const QString& consequence) {
        request.answer.refuse(QString("cannot start '%1': %2; %3").arg(module.name(), reason, consequence));
    };
    if (!request.wantsUp) {
        // Somebody may have it started again at once: its end counts all the same.
        const bool hasEnded = module.state() == State::Down || module.ends() > request.endsBefore;
        if (hasEnded)
            request.answer.give(QString("'%1' %2").arg(module.name(), module.lastEnd()));
        return hasEnded;
    }
    switch (module.state()) {
    case State::Up:
        request.answer.give(QString("'%1' is up, process %2").arg(module.name()).arg(module.processId()));
        return true;
    case State::Down:
        refuse("it " + module.lastEnd(), "it stays down");
        return true;
    case State::Pausing:
        refuse("it " + module.lastEnd(), "it is tried again");
        return true;
    case State::Waiting:
        if (m_fleet.downAmongNeeded(module).isEmpty())
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
