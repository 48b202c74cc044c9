// How states leave a machine, whatever it is doing at the time.
#pragma once

#include "Machine.h"

#include <QFinalState>
#include <QPointer>
#include <QState>

namespace automatonZeta {

/// What a state remembers of the machine that it was taken out of last: that machine may still look at it.
struct FormerMember {
    QPointer<Machine> formerMachine;
};

/// The Qt states behind the wrappers. Qt makes states of its own inside a machine; these tell ours from them.
template <typename Base>
class MemberState final : public Base, public FormerMember {
public:
    using Base::Base;

protected:
    void onEntry(QEvent* event) override {
        // Taken out after Qt had decided to enter it, but before it did.
        if (!this->machine() && formerMachine)
            formerMachine->halt();
        Base::onEntry(event);
    }
};

/// Takes `state`, with its sub-states, out of its parent state and its machine, so that it is without a parent. A
/// running machine that is in the state is halted: it has no state left to be in.
void takeOut(QAbstractState* state);

/// Takes out each direct sub-state of `parent`, which may be the machine: they belong to whoever made them.
void takeOutSubStates(QObject* parent);

/// Deletes a state or hands it over to the machine that may still look at it.
void dispose(QAbstractState* state);

} // namespace automatonZeta
