// The wrappers around Qt's states.
#include "EntryAction.h"
#include "StateData.h"

#include <QFinalState>
#include <QMetaMethod>
#include <QSignalTransition>
#include <QState>

namespace automatonZeta {
namespace {

constexpr char signalCode = '0' + QSIGNAL_CODE; // what the SIGNAL() macro puts in front

bool hasSignal(const QObject* sender, const char* signal) {
    if (!sender || !signal || *signal != signalCode)
        return false;
    return sender->metaObject()->indexOfSignal(QMetaObject::normalizedSignature(signal + 1)) != -1;
}

// A QtState's Qt state is a QState, by its constructor.
QState* asQState(QAbstractState* state) {
    return static_cast<QState*>(state);
}

} // namespace

QtAbstractState::QtAbstractState(std::unique_ptr<Private> data) : d(std::move(data)) {}

QtAbstractState::~QtAbstractState() {
    delete d->state;
}

void QtActionState::invokeMethodOnEntry(QObject* object, const char* method, const QList<QVariant>& args) {
    if (d->state)
        addEntryAction(d->state, object, method, args);
}

QtState::QtState(QtState* parent)
    : QtActionState(std::unique_ptr<Private>(new Private{new QState(asQState(Private::stateOf(parent)))})) {}

void QtState::setInitialState(QtAbstractState* state) {
    if (d->state)
        asQState(d->state)->setInitialState(Private::stateOf(state));
}

QtAbstractTransition* QtState::addTransition(QObject* sender, const char* signal, QtAbstractState* target) {
    if (!d->state || !hasSignal(sender, signal))
        return nullptr;
    auto* const transition = new QSignalTransition(sender, signal);
    transition->setTargetState(Private::stateOf(target));
    asQState(d->state)->addTransition(transition);
    if (transition->sourceState() != d->state) {
        delete transition; // Qt has refused it, and said why
        return nullptr;
    }
    return reinterpret_cast<QtAbstractTransition*>(transition);
}

void QtState::removeTransition(QtAbstractTransition* transition) {
    // Without the Qt state its transitions are gone as well, and the handle points nowhere.
    if (!transition || !d->state)
        return;
    auto* const signalTransition = reinterpret_cast<QSignalTransition*>(transition);
    if (signalTransition->sourceState() != d->state)
        return;
    asQState(d->state)->removeTransition(signalTransition);
    delete signalTransition; // safe even while it is being taken: Qt is done with it when it enters the
                             // target
}

QtFinalState::QtFinalState(QtState* parent)
    : QtActionState(std::unique_ptr<Private>(new Private{new QFinalState(asQState(Private::stateOf(parent)))})) {}

} // namespace automatonZeta
