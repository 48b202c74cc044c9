// The steps of a save: freeze all, copy, release all. What goes wrong in between leads to the same finish(), so there is one
// place that resumes.
//
// The command only gets the folders of modules that cannot change their data while it runs: those that are frozen, and those
// without a process. The supervisor starts none meanwhile.
#include "SaveRestore.h"

#include "Bus.h"
#include "Fleet.h"
#include "Guardian.h"
#include "Log.h"

#include "bus/BusNames.h"

#include <QSet>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr int commandSlot = Guardian::slotCount - 1; // the modules have those from 0 on

QString quoted(const QStringList& names) {
    return '\'' + names.join("', '") + '\'';
}

QString verb(SaveRestore::Operation operation) {
    return operation == SaveRestore::Save ? "save" : "restore";
}

QString participle(SaveRestore::Operation operation) {
    return operation == SaveRestore::Save ? "saved" : "restored";
}

} // namespace

SaveRestore::SaveRestore(const Configuration& configuration, Fleet& fleet, Guardian& guardian)
    : m_configuration(configuration), m_fleet(fleet), m_command(guardian, commandSlot) {
    m_newcomers.setConnection(QDBusConnection::sessionBus());
    m_newcomers.setWatchMode(QDBusServiceWatcher::WatchForRegistration);
    connect(&m_newcomers, &QDBusServiceWatcher::serviceRegistered, this, &SaveRestore::noteAppeared);
    m_limit.setSingleShot(true);
    connect(&m_limit, &QTimer::timeout, this, [this] {
        if (m_step == Step::Freezing)
            copy();
        else
            m_command.killGroup();
    });
    connect(&m_command, &SupervisedProcess::ended, this, &SaveRestore::takeCommandEnd);
}

SaveRestore::~SaveRestore() {
    m_command.disconnect(this);
}

void SaveRestore::begin(Operation operation, const QStringList& names, const LateAnswer& answer) {
    const QStringList wanted = names.isEmpty() ? everyoneWithData() : names;
    const QString reason = refusal(operation, wanted);
    if (!reason.isEmpty()) {
        const QString text =
            QString("cannot %1 %2: %3; nothing was done").arg(verb(operation), shown(quoted(wanted)), reason);
        logError(text);
        return answer.refuse(text);
    }
    m_operation = operation;
    m_step = Step::Freezing;
    m_answer = answer;
    m_names = wanted;
    m_quiet.clear();
    m_troubles.clear();
    m_commandRan = false;
    m_late.clear();
    ++m_number;
    m_questions = 0;
    m_fleet.hold(true);
    logInfo(QString("%1: freezes %2").arg(verb(operation), m_names.join(", ")));
    m_limit.start(m_configuration.answerLimitMs);
    for (const QString& name : qAsConst(m_names))
        takeIn(name);
    goOnWhenSettled(); // there may be nobody to wait for
}

QStringList SaveRestore::everyoneWithData() const {
    QStringList names;
    for (const auto& module : m_fleet.modules()) {
        if (!module->dataFolder().isEmpty())
            names += module->name();
    }
    return names;
}

QString SaveRestore::refusal(Operation operation, const QStringList& names) const {
    if (command(operation).program.isEmpty())
        return QString("the configuration has no key '%1'").arg(verb(operation));
    if (names.isEmpty())
        return "no module has a data folder";
    QSet<QString> seen;
    for (const QString& name : names) {
        const SupervisedModule* module = m_fleet.find(name);
        if (!module)
            return QString("there is no module %1 in the configuration").arg(quotedName(name));
        if (module->dataFolder().isEmpty())
            return QString("'%1' has no data folder").arg(name);
        if (seen.contains(name))
            return QString("'%1' is named twice").arg(name);
        seen.insert(name);
    }
    return QString();
}

void SaveRestore::takeIn(const QString& name) {
    SupervisedModule* module = m_fleet.find(name);
    module->alive().excuse(true); // it may prepare for as long as the operation lets it
    if (!module->hasProcess())
        return takeInQuiet(name);
    if (module->state() != SupervisedModule::State::Up)
        return exclude(name, "is neither up nor down");
    if (earlierWatch(name))
        m_late += name;
    else
        freeze(name);
}

// No process of the supervisor's: there may be one that somebody else has started. That one is not frozen, since nobody would
// resume it when the supervisor is killed.
void SaveRestore::takeInQuiet(const QString& name) {
    const QString service = vel::bus::serviceName(name);
    m_quiet += name;
    m_newcomers.addWatchedService(service); // before the question: nobody can appear unseen
    ++m_questions;
    askBus("GetConnectionUnixProcessID", service, this, [this, name, number = m_number](const QVariant& process) {
        if (number != m_number || m_step != Step::Freezing)
            return; // the limit has passed
        --m_questions;
        if (process.isValid() && m_quiet.removeOne(name))
            exclude(name, QString("runs as process %1, which the supervisor did not start").arg(process.toUInt()));
        goOnWhenSettled();
    });
}

void SaveRestore::noteAppeared(const QString& service) {
    for (const QString& name : qAsConst(m_quiet)) {
        if (vel::bus::serviceName(name) != service)
            continue;
        exclude(name, "was started meanwhile, by somebody else");
        m_quiet.removeOne(name);
        return;
    }
}

FreezeWatch* SaveRestore::earlierWatch(const QString& name) const {
    for (const auto& watch : m_alive) {
        if (watch->module() == name && !watch->isDormant())
            return watch.get();
    }
    return nullptr;
}

void SaveRestore::freeze(const QString& name) {
    m_alive.erase(
        std::remove_if(m_alive.begin(), m_alive.end(), [&name](const auto& watch) { return watch->module() == name; }),
        m_alive.end()); // one that is dormant
    m_alive.push_back(std::make_unique<FreezeWatch>(name));
    FreezeWatch* watch = m_alive.back().get();
    m_watches.push_back(watch);
    connect(watch, &FreezeWatch::changed, this, &SaveRestore::goOnWhenSettled);
    connect(watch, &FreezeWatch::over, this, [this](FreezeWatch* ended) {
        const auto place =
            std::find_if(m_alive.begin(), m_alive.end(), [ended](const auto& one) { return one.get() == ended; });
        place->release()->deleteLater(); // it is the one that called
        m_alive.erase(place);
        freezeThoseThatCameThrough();
        Q_EMIT released();
    });
    connect(watch, &FreezeWatch::fellAsleep, this, [this] {
        freezeThoseThatCameThrough();
        Q_EMIT released();
    });
    watch->ask(m_operation == Save);
}

void SaveRestore::freezeThoseThatCameThrough() {
    if (m_step != Step::Freezing)
        return;
    for (const QString& name : QStringList(m_late)) {
        if (earlierWatch(name))
            continue;
        m_late.removeOne(name);
        takeIn(name); // it may also have ended
    }
    goOnWhenSettled();
}

bool SaveRestore::isNeeded() const {
    return m_step != Step::Idle ||
           std::any_of(m_alive.begin(), m_alive.end(), [](const auto& watch) { return !watch->isDormant(); });
}

void SaveRestore::takeAnswer(const QString& sender) {
    for (const auto& watch : m_alive)
        watch->takeAnswer(sender);
}

void SaveRestore::goOnWhenSettled() {
    const bool isSettled = std::none_of(m_watches.begin(), m_watches.end(), [](const FreezeWatch* watch) {
        return watch->state() == FreezeWatch::State::Asking || watch->state() == FreezeWatch::State::Answered;
    });
    if (m_step == Step::Freezing && isSettled && m_questions == 0 && m_late.isEmpty())
        copy();
}

void SaveRestore::copy() {
    m_step = Step::Copying;
    if (m_questions > 0) { // the bus has not answered: any of them may run
        for (const QString& name : std::exchange(m_quiet, {}))
            exclude(name, "could not be asked for on the bus");
    }
    QStringList participants = m_quiet;
    std::vector<FreezeWatch*> frozen;
    for (FreezeWatch* watch : m_watches) {
        const QString reason = watch->reason();
        if (reason.isEmpty()) {
            frozen.push_back(watch);
            participants += watch->module();
        } else {
            exclude(watch->module(), reason);
            watch->release(); // it must not wait for the end of a command that does not concern it
        }
    }
    m_watches = frozen;
    for (const QString& name : qAsConst(m_late))
        exclude(name, "has not yet come through the last save or restore");
    m_late.clear();
    participants = inOrder(participants);
    if (participants.isEmpty())
        return finish();

    QStringList folders;
    for (const QString& name : qAsConst(participants))
        folders += m_fleet.find(name)->dataFolder();
    const CommandConfiguration& copying = command(m_operation);
    logInfo(QString("%1: runs '%2' for %3").arg(verb(m_operation), copying.program, participants.join(", ")));
    m_commandRan = true;
    m_limit.start(copying.limitMs);
    m_command.run(copying.program, copying.arguments + folders,
                  {{"VEL_OPERATION", verb(m_operation)}, {"VEL_MODULES", participants.join(' ')}},
                  m_configuration.folder);
}

void SaveRestore::takeCommandEnd() {
    if (m_step != Step::Copying) {
        Q_EMIT finished(); // it was abandoned: its command has ended only now
        return;
    }
    const SupervisedProcess::End& end = m_command.end();
    if (!m_limit.isActive())
        finish(QString("the command '%1' was killed: it did not end in time").arg(command(m_operation).program));
    else if (end.kind == SupervisedProcess::End::Exited && end.number == 0)
        finish();
    else if (end.kind == SupervisedProcess::End::Exited)
        finish(QString("the command '%1' ended with status %2").arg(command(m_operation).program).arg(end.number));
    else
        finish("the command " + m_command.endText());
}

void SaveRestore::abandon(const QString& reason) {
    if (m_step == Step::Idle)
        return;
    m_command.killGroup();
    finish(reason);
}

// `failure` is empty when the command has done its work, or had none to do.
void SaveRestore::finish(const QString& failure) {
    m_limit.stop();
    m_step = Step::Idle;
    QStringList done = m_quiet;
    for (FreezeWatch* watch : std::exchange(m_watches, {})) {
        const QString reason = watch->reason();
        if (!reason.isEmpty())
            exclude(watch->module(), reason);
        else
            done += watch->module();
        if (reason.isEmpty() && m_operation == Restore && failure.isEmpty())
            watch->announceRestored(); // heard once it goes on
        watch->release();
    }
    done = inOrder(done);
    if (!failure.isEmpty())
        m_troubles.prepend(failure);
    if (m_troubles.isEmpty()) {
        logInfo(QString("%1: done, %2 took part").arg(verb(m_operation), done.join(", ")));
        m_answer.give(done);
    } else {
        const QString text =
            QString("cannot %1 %2: %3; %4")
                .arg(verb(m_operation), quoted(m_names), m_troubles.join(", "), consequence(!failure.isEmpty(), done));
        logError(text);
        m_answer.refuse(text);
    }
    m_answer = LateAnswer();
    m_newcomers.setWatchedServices({});
    for (const QString& name : qAsConst(m_names))
        m_fleet.find(name)->alive().excuse(false);
    m_fleet.hold(false);
    Q_EMIT released();
    if (!isBusy())
        Q_EMIT finished();
}

// As they were asked for, and not as they became ready.
QStringList SaveRestore::inOrder(const QStringList& names) const {
    const QSet<QString> wanted(names.begin(), names.end());
    QStringList ordered;
    std::copy_if(m_names.begin(), m_names.end(), std::back_inserter(ordered),
                 [&wanted](const QString& name) { return wanted.contains(name); });
    return ordered;
}

void SaveRestore::exclude(const QString& module, const QString& reason) {
    m_troubles += QString("'%1' %2").arg(module, reason);
}

QString SaveRestore::consequence(bool commandFailed, const QStringList& done) const {
    if (!m_commandRan)
        return "nothing was " + participle(m_operation);
    if (commandFailed)
        return m_operation == Save ? "what the command has written is not to be relied on"
                                   : "the data may be half restored";
    if (done.isEmpty())
        return QString("what was %1 is not to be relied on").arg(participle(m_operation));
    return QString("%1 without it: %2").arg(participle(m_operation), quoted(done));
}

const CommandConfiguration& SaveRestore::command(Operation operation) const {
    return operation == Save ? m_configuration.save : m_configuration.restore;
}
