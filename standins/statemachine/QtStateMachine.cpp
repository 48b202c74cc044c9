// The wrapper around Qt's state machine.
#include "platform/QtStateMachine.h"

#include "Machine.h"
#include "MachineMembership.h"
#include "StateData.h"

#include <QPointer>

namespace automatonZeta {

struct QtStateMachine::Private {
    /// Null once the QObject parent has deleted the machine.
    QPointer<Machine> machine;
};

QtStateMachine::QtStateMachine(QObject* parent) : d(new Private{new Machine(parent)}) {}

QtStateMachine::~QtStateMachine() {
    if (!d->machine)
        return;
    takeOutSubStates(d->machine);
    d->machine->halt();
    d->machine->abandon();
}

void QtStateMachine::addState(QtAbstractState* state) {
    if (!d->machine || !state || !state->d->state || state->d->state->parentState() == d->machine)
        return;
    takeOut(state->d->state);
    state->d->state->setParent(d->machine);
}

void QtStateMachine::removeState(QtAbstractState* state) {
    if (state && state->d->state)
        takeOut(state->d->state);
}

void QtStateMachine::setInitialState(QtAbstractState* state) {
    if (d->machine)
        d->machine->setInitialState(state ? state->d->state.data() : nullptr);
}

void QtStateMachine::start() {
    if (d->machine)
        d->machine->begin();
}

void QtStateMachine::stop() {
    if (d->machine)
        d->machine->halt();
}

} // namespace automatonZeta
