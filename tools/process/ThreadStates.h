// Whether the threads of a process run, are stopped, or are in a debugger's hands.
#pragma once

#include <sys/types.h>

enum class ThreadStates {
    Gone,    ///< there is no such process, or nothing but its remains
    Running, ///< at least one of its threads runs, or waits for something
    Stopped, ///< every thread is stopped by a signal
    Traced   ///< a debugger holds it, stopped or not
};

ThreadStates stateOf(pid_t process);

/// The process that traces this one; 0 when nobody does.
pid_t tracerOf(pid_t process);
