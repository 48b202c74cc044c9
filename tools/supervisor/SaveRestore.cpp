// The steps of a save: freeze all, copy, release all. What goes wrong in between leads to the same finish(), so there is one
// place that resumes.
//
// The command only gets the folders of modules that cannot change their data while it runs: those that are frozen, and those
// without a process. The supervisor starts none meanwhile.
#include "SaveRestore.h"

#include "Fleet.h"
#include "Guardian.h"
#include "Log.h"

#include <VelModule>

#include <algorithm>
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

SaveRestore::SaveRestore(const Configuration& configuration, Fleet& fleet, Guardian& guardian,
                         const VelModule& supervisor)
    : m_configuration(configuration), m_fleet(fleet), m_supervisor(supervisor), m_command(guardian, commandSlot) {
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
        const QString text = QString("cannot %1 %2: %3; nothing was done").arg(verb(operation), quoted(wanted), reason);
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
    m_fleet.hold(true);
    logInfo(QString("%1: freezes %2").arg(verb(operation), m_names.join(", ")));
    m_limit.start(m_configuration.answerLimitMs);
    for (const QString& name : qAsConst(m_names))
        freeze(name);
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
    if (isBusy() || m_command.isRunning())
        return "a save or a restore is going on";
    if (command(operation).program.isEmpty())
        return QString("the configuration has no key '%1'").arg(verb(operation));
    if (names.isEmpty())
        return "no module has a data folder";
    for (const QString& name : names) {
        const SupervisedModule* module = m_fleet.find(name);
        if (!module)
            return QString("there is no module '%1' in the configuration").arg(name);
        if (module->dataFolder().isEmpty())
            return QString("'%1' has no data folder").arg(name);
        if (names.count(name) > 1)
            return QString("'%1' is named twice").arg(name);
    }
    return QString();
}

void SaveRestore::freeze(const QString& name) {
    const SupervisedModule* module = m_fleet.find(name);
    if (!module->hasProcess()) {
        m_quiet += name;
        return;
    }
    if (module->state() != SupervisedModule::State::Up)
        return exclude(name, "is neither up nor down");
    const auto earlier =
        std::find_if(m_alive.begin(), m_alive.end(), [&name](const auto& watch) { return watch->module() == name; });
    if (earlier != m_alive.end() && !(*earlier)->isDormant())
        return exclude(name, "has not yet come through the last save or restore");
    if (earlier != m_alive.end())
        m_alive.erase(earlier);
    FreezeWatch::Address address{name, {}, {}, {}};
    m_supervisor.getDBusServiceInfos(name, address.path, address.service, address.interface);
    m_alive.push_back(std::make_unique<FreezeWatch>(address, QDBusConnection::sessionBus()));
    FreezeWatch* watch = m_alive.back().get();
    m_watches.push_back(watch);
    connect(watch, &FreezeWatch::changed, this, &SaveRestore::goOnWhenSettled);
    connect(watch, &FreezeWatch::over, this, [this](FreezeWatch* ended) {
        const auto place =
            std::find_if(m_alive.begin(), m_alive.end(), [ended](const auto& one) { return one.get() == ended; });
        place->release()->deleteLater(); // it is the one that called
        m_alive.erase(place);
    });
    watch->ask(m_operation == Save);
}

void SaveRestore::takeAnswer(const QString& sender) {
    for (const auto& watch : m_alive)
        watch->takeAnswer(sender);
}

void SaveRestore::goOnWhenSettled() {
    const bool isSettled = std::none_of(m_watches.begin(), m_watches.end(), [](const FreezeWatch* watch) {
        return watch->state() == FreezeWatch::State::Asking || watch->state() == FreezeWatch::State::Answered;
    });
    if (m_step == Step::Freezing && isSettled)
        copy();
}

void SaveRestore::copy() {
    m_step = Step::Copying;
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
    if (m_step != Step::Copying)
        return; // it was abandoned
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
    if (!isBusy())
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
    m_fleet.hold(false);
    Q_EMIT finished();
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
