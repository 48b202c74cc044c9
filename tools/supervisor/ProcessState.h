// What /proc says about a process: whether it runs, is stopped, or is in a debugger's hands.
#pragma once

#include <sys/types.h>

enum class ProcessState {
    Gone,    ///< there is no such process, or nothing but its remains
    Running, ///< at least one of its threads runs, or waits for something
    Stopped, ///< every thread is stopped by a signal
    Traced   ///< a debugger holds it, stopped or not
};

ProcessState stateOf(pid_t process);

/// The process that traces this one; 0 when nobody does.
pid_t tracerOf(pid_t process);
