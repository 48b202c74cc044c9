// How it works. A module that hears the announcement answers with an event, and some moments later stops its own process.
// Nobody is told of that moment: so, from the answer on, and only then, the process is looked at in short intervals.
//
// What must always hold: no module stays frozen, and no module freezes later with nobody left to resume it. A module may be
// slow, and freeze long after the supervisor has given up waiting; a SIGCONT sent too early is lost. So a watch ends by
// proof, never by time. The proof is a call, the probe, which is sent after the announcement. A module handles what it gets
// in the order in which it came, on one thread: when the answer to the probe is here, the module has left the slot that
// freezes it. Only a slot that runs an event loop of its own may let the probe pass; so another one follows the module's
// answer, after which there is nothing left in the slot but the freeze. A module that did not subscribe, or whose hook
// threw, is found out by its first probe at once instead of by the time limit. Since that might also have been a slot with an
// event loop, such a watch is not over: it sleeps until the module answers after all, or is asked again.
//
// The announcement goes to the module alone, as a signal with a receiver: the list in it is searched for names as for any
// text, and one that all modules heard would freeze "Media" along with "MediaPlayer", and modules that nobody here would
// resume. The process is the one that the bus knows as the sender's, so that a module behind a wrapper program is found.
//
// A process that a debugger holds is not frozen, though it may be stopped: the debugger may let it go on at any moment. It
// is resumed once it is seen stopped without one.
#include "FreezeWatch.h"

#include "Bus.h"

#include "bus/BusNames.h"
#include "process/ThreadStates.h"

#include <algorithm>
#include <csignal>
#include <utility>

namespace {

constexpr int shortestLookMs = 2;
constexpr int longestLookMs = 250;
constexpr int mostProbes = 2; // one behind the announcement and one behind the answer; a module may answer without end

} // namespace

FreezeWatch::FreezeWatch(const QString& module) : m_module(module) {
    m_look.setSingleShot(true);
    connect(&m_look, &QTimer::timeout, this, &FreezeWatch::look);
}

void FreezeWatch::ask(bool save) {
    m_save = save;
    askBus("GetNameOwner", vel::bus::serviceName(m_module), this, [this](const QVariant& owner) { takeOwner(owner); });
}

void FreezeWatch::takeOwner(const QVariant& owner) {
    m_owner = owner.toString();
    if (m_owner.isEmpty() || m_isReleased)
        return enter(State::Gone);
    askBus("GetConnectionUnixProcessID", m_owner, this, [this](const QVariant& process) { takeProcess(process); });
}

void FreezeWatch::takeProcess(const QVariant& process) {
    m_process = process.toInt();
    if (m_process <= 0 || m_isReleased) // released before it was asked: it will not be
        return enter(State::Gone);
    announce();
}

void FreezeWatch::announce() {
    const QString list = QString("%1:%2").arg(m_module).arg(m_process);
    publish("prepare_save_restore", {{"ModulesPidsList", list}, {"Save", m_save}}, m_owner);
    probe();
}

void FreezeWatch::announceRestored() const {
    publish("restore_done", {{"modules", m_module}}, m_owner);
}

void FreezeWatch::probe() {
    m_needsProbe = m_openProbes == mostProbes;
    if (m_needsProbe)
        return;
    const int number = ++m_probe;
    ++m_openProbes;
    askEventLoop(m_owner, vel::bus::objectPath(m_module), this, [this, number](Answer answer) {
        --m_openProbes;
        if (m_needsProbe)
            probe();
        else if (number == m_probe)
            takeProbe(answer == Answer::FromTheLoop);
    });
}

void FreezeWatch::takeProbe(bool isAnswered) {
    if (!isAnswered && stateOf(m_process) != ThreadStates::Gone) {
        // Its connection, or the whole bus, is lost, and the process is still there: it may freeze yet, without a word.
        if (m_state == State::Asking)
            enter(State::Answered);
        return look();
    }
    m_isProven = true;
    if (m_state != State::Frozen || !isAnswered)
        enter(isAnswered ? State::Passed : State::Gone);
    if (m_isReleased)
        finishUnlessDormant();
}

void FreezeWatch::takeAnswer(const QString& sender) {
    if (sender != m_owner || m_owner.isEmpty())
        return;
    m_hasAnswered = true;
    m_isProven = false;
    probe();
    if (m_state == State::Asking || m_state == State::Passed)
        enter(State::Answered);
    m_look.start(shortestLookMs);
}

void FreezeWatch::look() {
    if (m_isProven)
        return;
    switch (stateOf(m_process)) {
    case ThreadStates::Gone:
        m_isProven = true;
        enter(State::Gone);
        if (m_isReleased)
            finishUnlessDormant();
        return;
    case ThreadStates::Stopped:
        if (m_isReleased)
            resume();
        else if (m_state == State::Answered)
            return enter(State::Frozen); // looked at again once it is released
        break;
    case ThreadStates::Running:
    case ThreadStates::Traced:
        break;
    }
    m_look.start(std::min(std::max(m_look.interval() * 2, shortestLookMs), longestLookMs));
}

bool FreezeWatch::isStillFrozen() const {
    return m_state == State::Frozen && !m_isProven && stateOf(m_process) == ThreadStates::Stopped;
}

QString FreezeWatch::reason() const {
    const ThreadStates process = m_process > 0 ? stateOf(m_process) : ThreadStates::Gone;
    const QString held =
        process == ThreadStates::Traced ? QString(": process %1 debugs it").arg(tracerOf(m_process)) : QString();
    switch (m_state) {
    case State::Asking:
        return process == ThreadStates::Stopped ? QString("did not answer in time: somebody else has stopped it")
                                                : "did not answer in time" + held;
    case State::Answered:
        return "answered, but did not freeze in time" + held;
    case State::Passed:
        return "went on without freezing: it takes no part in saves, or its preparation failed";
    case State::Gone:
        return m_process > 0 ? "ended meanwhile" : "is not on the bus";
    case State::Frozen:
        if (process == ThreadStates::Gone)
            return "ended meanwhile";
        return isStillFrozen() ? QString() : QString("was resumed too early, by somebody else");
    }
    return QString();
}

void FreezeWatch::release() {
    m_isReleased = true;
    if (m_process <= 0 || m_isProven)
        return finishUnlessDormant();
    if (m_state == State::Asking)
        return; // its answer, or that to its probe, comes sooner or later
    m_look.setInterval(shortestLookMs);
    look();
}

void FreezeWatch::enter(State state) {
    if (m_state == state)
        return;
    m_state = state;
    Q_EMIT changed(); // may release this watch
}

void FreezeWatch::resume() {
    ::kill(m_process, SIGCONT);
}

void FreezeWatch::finishUnlessDormant() {
    m_look.stop();
    if (m_state == State::Passed && !m_hasAnswered) {
        Q_EMIT fellAsleep();
        return;
    }
    m_isProven = true;
    if (!std::exchange(m_isOver, true))
        Q_EMIT over(this);
}
