// Signals of the operating system, told by the event loop.
#pragma once

#include "platform/VelExport.h"

#include <functional>
#include <initializer_list>

class QObject;
class VelModule;

/// Ends the module in the normal way when one of these signals comes: through STOP, with its hook stop(), and with the
/// status that is pending. Without this call a signal ends the process at once, and stop() is not called.
///
///     int main(int argc, char** argv) {
///         VelApplication application(argc, argv);
///         Tuner tuner;
///         velStopOnSignals(tuner, {SIGTERM, SIGINT}); // stop() also after Ctrl-C and at shutdown
///         return application.exec();
///     }
///
/// A signal that comes before RUN is remembered until RUN: run() is called, then stop(). The second signal ends the
/// process at once, as if this call had not been made: whoever sends two of them does not want to wait for a hook that
/// hangs. The supervisor is not asked, as exit() would: the module stops itself.
///
/// Once called, it holds for the life of the process. A signal that is ignored already (by "nohup", say) stays
/// ignored. Programs that the module starts do not inherit it.
///
/// Precondition: `module` lives until the event loop has ended.
/// Thread:       the one of the event loop.
VEL_EXPORT void velStopOnSignals(VelModule& module, std::initializer_list<int> signalNumbers);

/// Calls `heard` with the signal's number, from the event loop, each time one of these signals has come; for what
/// velStopOnSignals() does not cover, such as SIGHUP or SIGCHLD. Several calls may name the same signal: all are
/// called, in their order.
///
/// Signals of one number that come together may be told as one: the kernel joins them too. A signal that is ignored
/// already stays so, except SIGCHLD, which nobody ignores on purpose who asks for it here.
///
/// Ends with `context`; its thread must be the one of the event loop.
/// Errors:   ends the process when no pipe can be opened: it would be deaf.
/// Thread:   the one of the event loop.
VEL_EXPORT void velOnSignals(std::initializer_list<int> signalNumbers, QObject* context,
                             std::function<void(int signalNumber)> heard);
