// How states leave a machine, whatever it is doing at the time.
#include "MachineMembership.h"

#include "EntryAction.h"

#include <QSignalTransition>

#include <vector>

namespace automatonZeta {
namespace {

// Disconnects the transitions of a tree of states from their senders for the span of its life.
//
// Qt forgets to do so when a state leaves its machine: the connections, counted by the sender's address, would stay
// behind in the machine, and a later sender at that address would never be connected.
class TransitionsDisconnected {
public:
    explicit TransitionsDisconnected(const QAbstractState* root) {
        const auto transitions = root->findChildren<QSignalTransition*>();
        for (QSignalTransition* transition : transitions) {
            m_senders.push_back({transition, transition->senderObject()});
            transition->setSenderObject(nullptr);
        }
    }
    ~TransitionsDisconnected() {
        for (const Sender& sender : m_senders)
            sender.transition->setSenderObject(sender.object);
    }
    Q_DISABLE_COPY(TransitionsDisconnected)

private:
    struct Sender {
        QSignalTransition* transition;
        QObject* object;
    };
    std::vector<Sender> m_senders;
};

void rememberMachine(QAbstractState* state, Machine* machine) {
    if (auto* member = dynamic_cast<FormerMember*>(state))
        member->formerMachine = machine;
}

} // namespace

void takeOut(QAbstractState* state) {
    auto* const machine = static_cast<Machine*>(state->machine());
    if (!machine) {
        state->setParent(nullptr);
        return;
    }
    rememberMachine(state, machine);
    const auto subStates = state->findChildren<QAbstractState*>();
    for (QAbstractState* subState : subStates)
        rememberMachine(subState, machine);
    if (state->active())
        machine->halt();
    const TransitionsDisconnected disconnected(state);
    state->setParent(nullptr);
}

void takeOutSubStates(QObject* parent) {
    const auto subStates = parent->findChildren<QAbstractState*>(QString(), Qt::FindDirectChildrenOnly);
    for (QAbstractState* subState : subStates) {
        if (dynamic_cast<FormerMember*>(subState))
            takeOut(subState);
    }
}

void dispose(QAbstractState* state) {
    takeOutSubStates(state);
    takeOut(state);
    removeEntryActions(state);
    Machine* const machine = dynamic_cast<FormerMember*>(state)->formerMachine;
    // In the middle of a step it need not be active for Qt to have it on one of its lists.
    if (machine && (state->active() || machine->isEntering()))
        machine->keep(state);
    else
        delete state;
}

} // namespace automatonZeta
