// The platform's state-machine library, as this system calls it.
//
// libvel finds these classes in the module's process, in libautomatonzeta.so.1 or in whatever library with the same
// interface stands in its place. Every class keeps one opaque pointer, so an implementation is free in what it holds.
#pragma once

#include "platform/VelExport.h"

#include <QList>
#include <QVariant>

#include <memory>

class QObject;

namespace automatonZeta {

/// Handle of a transition that QtState::addTransition() made; only QtState::removeTransition() takes it.
class QtAbstractTransition;

/// What all states have in common. A state belongs to whoever made it with `new`. It is taken out of its machine with
/// removeState() before it is deleted; what is still inside of a machine or a state ends with that.
///
/// Thread:   states and machines are made, used and deleted on one thread, that of its event loop.
class VEL_EXPORT QtAbstractState {
public:
    virtual ~QtAbstractState();

protected:
    struct Private; // what an implementation keeps

    /// For an implementation's own classes.
    explicit QtAbstractState(std::unique_ptr<Private> data);

    std::unique_ptr<Private> d; ///< of this state

private:
    friend class QtState;
    friend class QtStateMachine;
    Q_DISABLE_COPY(QtAbstractState)
};

/// A state that can act when it is entered.
class VEL_EXPORT QtActionState : public QtAbstractState {
public:
    /// Each time the state is entered, invokes the slot `method` (a plain name such as "slot_check") on `object` with
    /// `args` (at most ten). The slot may emit, before it returns, the signal of a transition out of this same state:
    /// that transition is taken once the entry is complete.
    void invokeMethodOnEntry(QObject* object, const char* method, const QList<QVariant>& args);

protected:
    using QtAbstractState::QtAbstractState; ///< For an implementation's own classes.
};

/// A state with transitions, and possibly with sub-states.
class VEL_EXPORT QtState : public QtActionState {
public:
    /// A state, a child of `parent` when that is not null.
    explicit QtState(QtState* parent = nullptr);

    /// The sub-state entered when this state is entered.
    void setInitialState(QtAbstractState* state);

    /// A transition to `target`, taken when `sender` emits `signal` (in the form of Qt's SIGNAL() macro) while this
    /// state or any of its sub-states is active. Null when there is no such signal.
    QtAbstractTransition* addTransition(QObject* sender, const char* signal, QtAbstractState* target);

    /// Removes and deletes a transition made by addTransition() of this state. Null is ignored.
    void removeTransition(QtAbstractTransition* transition);
};

/// A state that no transition leaves; entering one at the top level ends the machine.
class VEL_EXPORT QtFinalState : public QtActionState {
public:
    /// A final state, a child of `parent` when that is not null.
    explicit QtFinalState(QtState* parent = nullptr);
};

/// The machine itself.
class VEL_EXPORT QtStateMachine {
public:
    /// A machine without states, not started. `parent`, when not null, owns what the implementation makes.
    explicit QtStateMachine(QObject* parent = nullptr);
    ~QtStateMachine();

    /// Makes `state` a top-level state of this machine.
    void addState(QtAbstractState* state);

    /// Takes `state` out of the machine and out of its parent state: the caller alone owns it then, and deleting a
    /// former parent does not delete it. After stop(), or before start().
    void removeState(QtAbstractState* state);

    /// The state entered when the machine starts.
    void setInitialState(QtAbstractState* state);

    /// Starts the machine: the initial state is entered, and its entry action runs, from the event loop and never
    /// inside this call (the module whose slots are the entry actions may still be under construction).
    void start();

    /// Stops processing transitions, for good: no entry action runs from here on.
    void stop();

private:
    struct Private;
    std::unique_ptr<Private> d;
    Q_DISABLE_COPY(QtStateMachine)
};

} // namespace automatonZeta
