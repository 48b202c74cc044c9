// What a state's wrapper keeps: its Qt state, for as long as that exists.
#pragma once

#include "platform/QtStateMachine.h"

#include <QAbstractState>
#include <QPointer>

namespace automatonZeta {

struct QtAbstractState::Private {
    /// Null once the machine or a parent state was deleted, and what was in it.
    QPointer<QAbstractState> state;

    static QAbstractState* stateOf(const QtAbstractState* wrapper) {
        return wrapper ? wrapper->d->state.data() : nullptr;
    }
};

} // namespace automatonZeta
