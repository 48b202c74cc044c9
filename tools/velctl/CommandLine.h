// Reading the command line: the options of each command, help, and what is wrong with a line.
#pragma once

#include "Commands.h"

namespace velctl {

/// What to do: run a command, or write a text and end.
struct Invocation {
    const Command* command = nullptr;
    Request request;
    QString text; ///< the help, when there is no command to run
};

/// Throws a Failure with Usage for a line that means nothing.
Invocation readCommandLine(QStringList arguments);

} // namespace velctl
