// Event delivery inside the exception net.
//
// How it works: every event that Qt delivers in the process passes notify(), on the event loop's thread, on worker
// threads and on Qt's own D-Bus thread. What escapes a delivery is sorted by the net's four clauses, logged and
// dropped. What must always hold: a thread's cancellation passes through (it is an exception too, and swallowing it
// aborts the process), and after a delivery that threw, the receiver's D-Bus context is what it was before.
#include "app/VelApplication.h"

#include "app/Delivery.h"
#include "bus/DBusContextKeeper.h"

#include <QEvent>

#include <cxxabi.h>
#include <optional>

VelApplication::~VelApplication() = default;

bool VelApplication::notify(QObject* receiver, QEvent* event) {
    // Taken before the delivery, which may destroy the receiver.
    const vel::Delivery delivery{receiver ? typeid(*receiver) : typeid(QObject),
                                 receiver ? receiver->objectName() : QString()};
    // Only a queued call can be a delivery from the bus; looking for a context at every event would cost all of them.
    std::optional<vel::DBusContextKeeper> keeper;
    if (event->type() == QEvent::MetaCall)
        keeper.emplace(receiver);
    try {
        return QCoreApplication::notify(receiver, event);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        vel::logCurrentException(&delivery);
        return false;
    }
}
