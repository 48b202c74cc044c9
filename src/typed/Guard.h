// How a handler or a continuation is called.
#pragma once

#include "app/VelExceptionNet.h"
#include "bus/DBusContextKeeper.h"

namespace vel::typed {

/// Calls it inside the exception net, and hides the D-Bus call that is being handled, if any: a nested event loop may have
/// delivered the event in the middle of that call, and a VelException must not answer it.
template <typename Callable>
void callGuarded(QObject* context, Callable&& callable) {
    DBusContextKeeper keeper(context);
    keeper.hide();
    velGuarded(callable);
}

} // namespace vel::typed
