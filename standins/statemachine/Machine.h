// The Qt machine behind a QtStateMachine.
#pragma once

#include <QStateMachine>

namespace automatonZeta {

class Machine final : public QStateMachine {
public:
    using QStateMachine::QStateMachine;

    /// Stops for good. Qt does so from the event loop, but no transition is taken and no entry action runs from here on.
    ///
    /// Qt's machine keeps plain pointers to the states that it was in, and reads them at its next start only. There is
    /// none, so states may be deleted once they were taken out.
    void halt() {
        m_isHalted = true;
        stop();
    }
    bool isHalted() const { return m_isHalted; }

private:
    bool m_isHalted = false;
};

} // namespace automatonZeta
