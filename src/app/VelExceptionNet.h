// The exception net, for code that has to catch for itself.
#pragma once

#include "platform/VelExport.h"

#include <cxxabi.h>
#include <utility>

/// Logs the exception that is being handled as one error line, as VelApplication::notify() does, and deletes it when
/// it is a VelException. To be called in a catch block, after thread cancellation (abi::__forced_unwind) has been let
/// through; velGuarded() does both.
///
/// Thread:   any.
VEL_EXPORT void velLogCurrentException();

/// Runs `callable` inside the exception net: true when it returned, false when it threw and that was logged.
///
/// An adaptor's slot needs it where Qt D-Bus was built without unwind tables (32-bit ARM as Debian builds it): there
/// no exception can pass Qt's delivery of a call, and what the slot lets escape ends the process. Elsewhere
/// VelApplication::notify() catches it anyway.
///
///     QString station(double megahertz) {
///         QString name;
///         velGuarded([&] { name = m_tuner.stationAt(megahertz); }); // may throw new VelException(...)
///         return name;
///     }
///
/// Thread:   any.
template <typename Callable>
bool velGuarded(Callable&& callable) {
    try {
        std::forward<Callable>(callable)();
        return true;
    } catch (abi::__forced_unwind&) {
        throw; // the thread is being cancelled: swallowing this would abort the process
    } catch (...) {
        velLogCurrentException();
        return false;
    }
}
