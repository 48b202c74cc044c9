// The lifecycle state machine: its ten states and twelve transitions as tables, built and taken apart again.
//
// Each state's entry action is a slot of the module that does the step's work and reports by emitting one of the
// module's signals; the transitions are those signals. A signal without a transition from the active state changes
// nothing. The machine starts from the event loop, not inside initAutomate(): that runs within the base constructor,
// where the subclass's hooks do not exist yet.
#include "module/VelModule.h"

#include <iterator>
#include <utility>

using automatonZeta::QtAbstractState;
using automatonZeta::QtAbstractTransition;
using automatonZeta::QtFinalState;
using automatonZeta::QtState;

struct VelModule::Lifecycle {
    enum State {
        Check,
        Init,
        Deploy,
        EndOfInit,
        Running,
        Run,
        PresentationLoaded,
        PresentationStop,
        Stop,
        Exit,
        NoState
    };

    struct StateRow {
        State state;
        QtState* VelModule::*member; // null for EXIT, which has a type of its own
        State parent;
        const char* entryAction;
    };

    struct TransitionRow {
        State source;
        const char* signal;
        State target;
    };

    // In the order of creation, which is that of the enumerators.
    static constexpr StateRow states[] = {
        {Check, &VelModule::m_checkState, NoState, "slot_check"},
        {Init, &VelModule::m_initState, NoState, "slot_init"},
        {Deploy, &VelModule::m_deployState, NoState, "slot_deploy"},
        {EndOfInit, &VelModule::m_endOfInitState, NoState, "slot_end_of_init"},
        {Running, &VelModule::m_runningState, NoState, nullptr},
        {Run, &VelModule::m_runState, Running, "slot_run"},
        {PresentationLoaded, &VelModule::m_presentationLoadedState, Running, "slot_presentation_loaded"},
        {PresentationStop, &VelModule::m_presentationStopState, Running, "slot_presentation_stop"},
        {Stop, &VelModule::m_stopState, NoState, "slot_stop"},
        {Exit, nullptr, NoState, "slot_exit"},
    };

    // Not constexpr: in debug builds SIGNAL() is a function call.
    inline static const TransitionRow transitions[] = {
        {Check, SIGNAL(sig_check_ok()), Init},
        {Check, SIGNAL(sig_check_nok()), Deploy},
        {Deploy, SIGNAL(sig_deploy_ok()), Init},
        {Deploy, SIGNAL(sig_deploy_nok()), Exit},
        {Init, SIGNAL(sig_init_ok()), EndOfInit},
        {Init, SIGNAL(sig_init_nok()), Exit},
        {EndOfInit, SIGNAL(sig_eoi_sent()), Running},
        {Running, SIGNAL(sig_stop()), Stop},
        {Stop, SIGNAL(sig_stop_appli_done()), Exit},
        {Run, SIGNAL(sig_presentation_loaded()), PresentationLoaded},
        {PresentationLoaded, SIGNAL(sig_web_stop()), PresentationStop},
        {PresentationStop, SIGNAL(sig_presentation_loaded()), PresentationLoaded},
    };

    // The first of those between RUNNING's sub-states; RUN becomes the initial one of them right before.
    static constexpr std::size_t firstInsideRunning = 9;

    static constexpr State additionOrder[] = {Check, Deploy, Init, EndOfInit, Running, Stop, Exit};

    // RUNNING goes after its sub-states when states leave the machine: they are out of it when it is deleted.
    static constexpr State removalOrder[] = {
        Check, Init, Deploy, EndOfInit, Run, PresentationStop, PresentationLoaded, Stop, Running, Exit};
    static constexpr State deletionOrder[] = {
        Running, Run, EndOfInit, Deploy, Init, Check, PresentationStop, PresentationLoaded, Stop, Exit};

    // One per row of `transitions`; of the process, which holds one module.
    static QtAbstractTransition* handles[std::size(transitions)];

    static QtAbstractState* stateOf(const VelModule& module, State state) {
        if (state == Exit)
            return module.m_exitState;
        return module.*states[state].member;
    }

    static void create(VelModule& module, const StateRow& row) {
        if (row.state == Exit)
            module.m_exitState = new QtFinalState(nullptr);
        else
            module.*row.member = new QtState(row.parent == NoState ? nullptr : module.*states[row.parent].member);
    }

    static void setEntryAction(VelModule& module, const StateRow& row) {
        if (row.state == Exit)
            module.m_exitState->invokeMethodOnEntry(&module, row.entryAction, QList<QVariant>());
        else if (row.entryAction)
            (module.*row.member)->invokeMethodOnEntry(&module, row.entryAction, QList<QVariant>());
    }

    static void addTransition(VelModule& module, std::size_t index) {
        const TransitionRow& row = transitions[index];
        handles[index] =
            (module.*states[row.source].member)->addTransition(&module, row.signal, stateOf(module, row.target));
    }

    static void removeTransitionsFrom(VelModule& module, State source) {
        for (std::size_t index = 0; index < std::size(transitions); ++index) {
            if (transitions[index].source == source)
                (module.*states[source].member)->removeTransition(std::exchange(handles[index], nullptr));
        }
    }

    static void destroy(VelModule& module, State state) {
        if (state == Exit)
            delete std::exchange(module.m_exitState, nullptr);
        else
            delete std::exchange(module.*states[state].member, nullptr);
    }
};

QtAbstractTransition* VelModule::Lifecycle::handles[] = {};

void VelModule::initAutomate() {
    subscribe(QStringLiteral("stop_module_%1").arg(m_moduleName), this, SLOT(stopModuleEvent(VelEvent)));
    subscribe(QStringLiteral("presentationLoaded"), this, SLOT(presentationLoadedEvent(VelEvent)));

    for (const Lifecycle::StateRow& row : Lifecycle::states)
        Lifecycle::create(*this, row);
    for (const Lifecycle::StateRow& row : Lifecycle::states)
        Lifecycle::setEntryAction(*this, row);
    for (std::size_t index = 0; index < std::size(Lifecycle::transitions); ++index) {
        if (index == Lifecycle::firstInsideRunning)
            m_runningState->setInitialState(m_runState);
        Lifecycle::addTransition(*this, index);
    }
    for (Lifecycle::State state : Lifecycle::additionOrder)
        m_stateMachine.addState(Lifecycle::stateOf(*this, state));

    m_stateMachine.setInitialState(m_checkState);
    m_stateMachine.start();
}

void VelModule::clearAutomate() {
    if (!m_checkState)
        return;
    unsubscribe(QStringLiteral("stop_module_%1").arg(m_moduleName), this, SLOT(stopModuleEvent(VelEvent)));
    unsubscribe(QStringLiteral("presentationLoaded"), this, SLOT(presentationLoadedEvent(VelEvent)));

    m_stateMachine.stop();
    for (Lifecycle::State state : Lifecycle::removalOrder) {
        Lifecycle::removeTransitionsFrom(*this, state);
        m_stateMachine.removeState(Lifecycle::stateOf(*this, state));
    }
    for (Lifecycle::State state : Lifecycle::deletionOrder)
        Lifecycle::destroy(*this, state);
}

QString VelModule::getState() {
    return m_stateName;
}
