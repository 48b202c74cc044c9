// The Qt machine behind a QtStateMachine, which outlives its wrapper for as long as Qt needs it.
//
// Qt's machine keeps plain pointers to the states that it is in and to those that it is about to enter, and still
// reads the former at the next start, long after a stop. States may nevertheless be deleted at any time here, so the
// machine takes over, until its own end, those that Qt may still look at: keep(). Likewise a machine whose wrapper is
// deleted by one of its own entry actions goes only when that action has returned: abandon().
#pragma once

#include <QStateMachine>

#include <memory>
#include <vector>

namespace automatonZeta {

class Machine final : public QStateMachine {
public:
    explicit Machine(QObject* parent);

    /// Starts from the event loop; after a halt() that Qt has yet to carry out, starts anew once it has.
    void begin();

    /// Stops. Qt does so from the event loop, but no transition is taken and no entry action runs from here on.
    void halt();

    /// True from begin() until halt() or the end of the machine: entry actions may run.
    bool isOn() const { return m_phase == Phase::On; }

    /// True while an entry action runs, that is, while Qt is in the middle of a step.
    bool isEntering() const { return m_entryActions > 0; }

    /// Takes a state over until the machine's end.
    void keep(QAbstractState* state) { m_kept.emplace_back(state); }

    /// Deletes the machine as soon as none of its entry actions runs any more.
    void abandon();

    /// Marks the span of an entry action; the machine may be deleted at any time after it, but not within.
    class Entering {
    public:
        explicit Entering(Machine& machine) : m_machine(machine) { ++m_machine.m_entryActions; }
        ~Entering() { m_machine.leaveEntryAction(); }
        Q_DISABLE_COPY(Entering)

    private:
        Machine& m_machine;
    };

private:
    enum class Phase { Off, On, Halting };

    void leaveEntryAction();
    void ended();

    Phase m_phase = Phase::Off;
    bool m_beginsAnew = false;
    bool m_isAbandoned = false;
    int m_entryActions = 0;
    std::vector<std::unique_ptr<QAbstractState>> m_kept;
};

} // namespace automatonZeta
