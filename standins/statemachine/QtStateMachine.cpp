// The wrapper around Qt's state machine.
#include "platform/QtStateMachine.h"

#include "Machine.h"
#include "StateData.h"

#include <QPointer>

namespace automatonZeta {

struct QtStateMachine::Private {
    /// Null once the QObject parent has deleted the machine.
    QPointer<Machine> machine;
};

QtStateMachine::QtStateMachine(QObject* parent) : d(new Private{new Machine(parent)}) {}

QtStateMachine::~QtStateMachine() {
    delete d->machine;
}

void QtStateMachine::addState(QtAbstractState* state) {
    if (d->machine && state && state->d->state)
        state->d->state->setParent(d->machine);
}

void QtStateMachine::removeState(QtAbstractState* state) {
    if (state && state->d->state)
        state->d->state->setParent(nullptr);
}

void QtStateMachine::setInitialState(QtAbstractState* state) {
    if (d->machine)
        d->machine->setInitialState(QtAbstractState::Private::stateOf(state));
}

void QtStateMachine::start() {
    if (d->machine)
        d->machine->start();
}

void QtStateMachine::stop() {
    if (d->machine)
        d->machine->halt();
}

} // namespace automatonZeta
