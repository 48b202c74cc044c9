// The slot invoked on entry into a state, and the net under it.
//
// An exception must not pass through Qt's machine: the flag by which Qt knows that it is in the middle of a step
// would stay set, and the machine would take no transition any more. So the entry is completed first, and the
// exception is thrown again from a call on the event loop, where QCoreApplication::notify() sees it as it sees that
// of any slot. Only the unwinding of a cancelled thread passes: it cannot be stopped, and there is no loop to come
// back to.
#pragma once

#include <QList>
#include <QVariant>

class QAbstractState;
class QObject;

namespace automatonZeta {

/// Invokes the slot `method` of `object` with `args` on each entry into `state`, as long as `object` exists.
void addEntryAction(QAbstractState* state, QObject* object, const char* method, const QList<QVariant>& args);

} // namespace automatonZeta
