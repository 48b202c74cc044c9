// How it works. A call is sent that the module's event loop answers; the next one follows some time after the answer. While
// a call is open, ticks are counted, and at the last one the module counts as silent.
//
// What must always hold: no false alarm. Ticks are counted instead of time, so that a supervisor that was stopped, or did not
// get the processor, does not hold its own pause against the module. After the last tick the bus is asked something: its
// answer comes behind all that was sent before, so an answer of the module that lay there unread is read first.
#include "AliveWatch.h"

#include "Bus.h"

#include "bus/BusNames.h"
#include "process/ProcessInfo.h"
#include "process/ThreadStates.h"
#include "process/WaitingFor.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int ticksALimit = 10;

} // namespace

AliveWatch::AliveWatch(const QString& module, const AliveConfiguration& configuration)
    : m_module(module), m_configuration(configuration) {
    m_every.setSingleShot(true);
    m_every.setInterval(configuration.everyMs);
    m_tick.setInterval(std::max(1, configuration.limitMs / ticksALimit));
    connect(&m_every, &QTimer::timeout, this, &AliveWatch::ask);
    connect(&m_tick, &QTimer::timeout, this, &AliveWatch::tick);
}

void AliveWatch::start() {
    stop();
    if (m_configuration.everyMs > 0)
        m_every.start();
}

void AliveWatch::stop() {
    ++m_question; // whatever is still answered is not listened to
    m_every.stop();
    m_tick.stop();
    m_process = 0;
    m_isSilent = false;
}

void AliveWatch::excuse(bool isExcused) {
    m_isExcused = isExcused;
    m_ticks = 0;
}

void AliveWatch::ask() {
    m_ticks = 0;
    m_tick.start();
    sendQuestion();
}

void AliveWatch::sendQuestion() {
    m_isRefused = false;
    const int question = ++m_question;
    const QString service = vel::bus::serviceName(m_module);
    // The process that answers may be another than the one that was started: a wrapper program's child.
    askBus("GetConnectionUnixProcessID", service, this, [this, question](const QVariant& process) {
        if (question == m_question)
            m_process = process.toInt();
    });
    askEventLoop(service, vel::bus::objectPath(m_module), this, [this, question](Answer answer) {
        if (question == m_question)
            takeAnswer(answer != Answer::None);
    });
}

// An error of the bus says nothing about the module, which has left the bus or been left out by it: it is asked again.
void AliveWatch::takeAnswer(bool isAnswer) {
    m_isRefused = !isAnswer;
    if (m_isRefused)
        return;
    m_tick.stop();
    m_every.start();
    if (std::exchange(m_isSilent, false))
        Q_EMIT answeredAgain();
}

void AliveWatch::tick() {
    const ThreadStates threads = m_process > 0 ? stateOf(m_process) : ThreadStates::Running;
    const bool isSaved = threads == ThreadStates::Stopped && processInfo(m_process).isSaved;
    if (m_isExcused || isSaved || threads == ThreadStates::Traced) {
        m_ticks = 0;
        return;
    }
    if (++m_ticks < ticksALimit) {
        if (m_isRefused)
            sendQuestion();
        return;
    }
    m_tick.stop();
    askBus("NameHasOwner", vel::bus::serviceName(m_module), this, [this, question = m_question](const QVariant&) {
        if (question == m_question && !m_isSilent && m_ticks >= ticksALimit)
            fail();
    });
}

void AliveWatch::fail() {
    m_isSilent = true;
    Q_EMIT wentSilent(m_isRefused || m_process <= 0 ? QString("it is not on the bus") : whySilent(m_process));
}
