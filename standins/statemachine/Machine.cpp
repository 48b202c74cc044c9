// The Qt machine behind a QtStateMachine, which outlives its wrapper for as long as Qt needs it.
#include "Machine.h"

namespace automatonZeta {

Machine::Machine(QObject* parent) : QStateMachine(parent) {
    connect(this, &QStateMachine::stopped, this, &Machine::ended);
    connect(this, &QStateMachine::finished, this, &Machine::ended);
}

void Machine::begin() {
    if (m_phase == Phase::Halting) {
        m_beginsAnew = true; // Qt refuses a start while its stop is pending
        return;
    }
    // Without an initial state Qt only prints a warning, and never says that it has stopped.
    if (initialState())
        m_phase = Phase::On;
    QStateMachine::start();
}

void Machine::halt() {
    m_beginsAnew = false;
    if (m_phase != Phase::On)
        return;
    m_phase = Phase::Halting;
    QStateMachine::stop();
}

void Machine::abandon() {
    if (!isEntering()) {
        delete this;
        return;
    }
    m_isAbandoned = true;
    setParent(nullptr);
}

void Machine::leaveEntryAction() {
    // From here and not from abandon(): Qt would carry out a deleteLater() requested in an event loop inside the
    // entry action while the action is still on the stack.
    if (--m_entryActions == 0 && m_isAbandoned)
        deleteLater();
}

void Machine::ended() {
    m_phase = Phase::Off;
    if (m_beginsAnew) {
        m_beginsAnew = false;
        begin();
    }
}

} // namespace automatonZeta
