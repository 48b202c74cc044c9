// Puts an object's D-Bus call context back after a delivery, whether it returned or threw.
//
// While Qt D-Bus delivers a call, the receiver's QDBusContext points into Qt's stack frame; Qt puts it back when the
// slot returns, not when it throws. Left alone, calledFromDBus() stays true afterwards and leads into a dead frame.
// The value to put back is the one from before this delivery: null at the outer level, the outer call's when a nested
// event loop delivered the one that threw.
//
// QDBusContext is one pointer without any virtual operation and offers no way to set it; so its bytes are kept. That
// size is asserted at compile time.
#pragma once

#include <QPointer>

class QObject;

namespace vel {

class DBusContextKeeper {
public:
    /// Keeps the context of `receiver`, or of the object that it adapts; does nothing for an object without one.
    explicit DBusContextKeeper(QObject* receiver);
    ~DBusContextKeeper();

    /// Until then the object is in no call.
    void hide();

private:
    QPointer<QObject> m_holder; // may be destroyed by the very delivery
    void* m_place = nullptr;    // of the context in it
    void* m_context = nullptr;
    Q_DISABLE_COPY(DBusContextKeeper)
};

} // namespace vel
