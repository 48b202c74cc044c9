// A transition on a signal, safe against the end of its sender and of its target.
#include "SignalTransition.h"

#include <QStateMachine>

namespace automatonZeta {

SignalTransition::SignalTransition(QObject* sender, const char* signal, QAbstractState* target)
    : QSignalTransition(sender, signal) {
    if (target)
        setTargetState(target);
    // Qt keeps the sender as a plain pointer and disconnects from it when the transition's state is left.
    connect(sender, &QObject::destroyed, this, [this] { setSenderObject(nullptr); });
}

bool SignalTransition::eventTest(QEvent* event) {
    // Qt takes a transition whose target is gone as one that leads nowhere, and stops with an error at a target
    // outside the machine. Here the signal changes nothing in either case.
    return QSignalTransition::eventTest(event) && targetState() && targetState()->machine() == machine();
}

} // namespace automatonZeta
