// What a process that does not answer is waiting for.
#pragma once

#include <QString>

/// A text for people about the process's main thread, which is the one of its event loop: "waits in read for
/// /dev/ttyS0", "is computing". What the kernel does not tell is left out.
QString waitingFor(qint64 pid);

/// Why a process whose event loop was asked something has not answered, as a clause: that it is stopped, held by a
/// debugger, gone, or what it waits for.
QString whySilent(qint64 pid);
