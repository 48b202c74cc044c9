// The guarded log line: the one rule by which every line of this library is filtered.
//
// The text is handed over as a callable, so that a line that does not pass costs one level query and nothing else: no
// concatenation, no QString::arg, no allocation. All lines go to the module's default logger.
#pragma once

#include "platform/VelLogger.h"

namespace vel {

/// The threshold of each severity: a line is written when the logger's level is strictly greater.
enum class Severity { Error = 2, Warning = 3, Info = 5, Debug = 6 };

/// The logger of every line of this library.
inline VelLogger* defaultLogger() {
    return logger(QStringLiteral(""));
}

/// Writes one line of the given severity, if the default logger's level lets it pass; `makeText` builds its text.
template <typename MakeText>
void logLine(Severity severity, MakeText&& makeText) {
    if (defaultLogger()->level() <= static_cast<int>(severity))
        return;
    const QString text = makeText();
    switch (severity) {
    case Severity::Error:
        return defaultLogger()->error(text);
    case Severity::Warning:
        return defaultLogger()->warning(text);
    case Severity::Info:
        return defaultLogger()->info(text);
    case Severity::Debug:
        return defaultLogger()->debug(text);
    }
}

/// The four severities by name.
template <typename MakeText>
void logError(MakeText&& makeText) {
    logLine(Severity::Error, makeText);
}
template <typename MakeText>
void logWarning(MakeText&& makeText) {
    logLine(Severity::Warning, makeText);
}
template <typename MakeText>
void logInfo(MakeText&& makeText) {
    logLine(Severity::Info, makeText);
}
template <typename MakeText>
void logDebug(MakeText&& makeText) {
    logLine(Severity::Debug, makeText);
}

} // namespace vel
