// One subscription of the process to the events of a name, and the handlers that share it.
//
// How it works: Qt D-Bus delivers the signal's message to one slot. That makes a Delivery, which reads the event at most
// once, and emits delivered(). Each handler is a connection to that signal with a context object. So Qt's signals see to
// the order of the handlers, to a context in another thread, to its death at any moment, and to handlers that come and go
// while an event is being delivered.
//
// What must always hold: a handler's exception does not reach Qt's emission. The handlers after it would not be called, and
// where Qt has no unwind tables the process would end.
//
// The slot takes the message and not the event, because only the message says who sent it.
#pragma once

#include "typed/Delivery.h"
#include "typed/Handlers.h"
#include "typed/VelSubscription.h"

#include <QHash>
#include <QObject>

class VelModule;

namespace vel::typed {

/// The dispatcher of one name; a child of the module.
///
/// Thread:   the module's.
class Dispatcher : public QObject {
    Q_OBJECT
public:
    Dispatcher(VelModule& module, QString eventName);

    /// The module's dispatcher for that name, made now if need be; null when the name cannot be subscribed to.
    static Dispatcher* of(VelModule& module, const QString& eventName);

    Subscription add(QObject* context, Handler handler);

Q_SIGNALS:
    void delivered(const vel::typed::DeliveryPointer& delivery);

public Q_SLOTS:
    void deliver(const QDBusMessage& signal);

private:
    bool subscribe();
    void giveUp();

    VelModule& m_module;
    const QString m_eventName;
};

} // namespace vel::typed
