// How a handler or a continuation is called.
#pragma once

#include "app/VelExceptionNet.h"
#include "bus/DBusContextKeeper.h"

namespace vel::typed {

/// Calls it inside the exception net, and in no D-Bus call: what it throws must not answer one that the event or the answer
/// came into, in a nested event loop.
template <typename Callable>
void callGuarded(QObject* context, Callable&& callable) {
    DBusContextKeeper keeper(context);
    keeper.hide();
    velGuarded(callable);
}

} // namespace vel::typed
