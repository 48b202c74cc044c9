// How a command ends: the exit statuses, and the exception that carries one with its one line of text.
#pragma once

#include <QString>

namespace velctl {

enum Status {
    Ok = 0,
    Failed = 1,
    Usage = 2,
    NotRunning = 3,    ///< no such module on the bus, or its process is stopped
    Unknown = 4,       ///< the module has no such method; nobody has subscribed the event
    AnsweredError = 5, ///< the module answered with an error
    NoBus = 7,
    TimeLimitReached = 124,
    Interrupted = 130,
};

/// Ends the command; main() writes the text to standard error.
struct Failure {
    Status status;
    QString text; ///< "cannot VERB 'OBJECT': REASON; CONSEQUENCE"
};

} // namespace velctl
