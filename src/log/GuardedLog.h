// The guarded log line: the one rule by which every line of this library is filtered.
//
// The text is handed over as a callable, so that a line that does not pass costs one level query and nothing else: no
// concatenation, no QString::arg, no allocation. All lines go to the module's default logger.
#pragma once

#include "log/LastError.h"
#include "platform/VelLogger.h"

namespace vel {

/// The logger of every line of this library.
inline VelLogger* defaultLogger() {
    return logger(QStringLiteral(""));
}

/// Writes one line with `write`, if the default logger's level lets that severity pass; `makeText` builds its text.
template <typename MakeText>
void logLine(VelSeverity severity, void (VelLogger::*write)(const QString&), MakeText&& makeText) {
    if (defaultLogger()->level() <= static_cast<int>(severity))
        return;
    const QString text = makeText();
    (defaultLogger()->*write)(text);
}

/// The four severities by name. The last error line is kept for whoever asks the module for it.
template <typename MakeText>
void logError(MakeText&& makeText) {
    logLine(VelSeverity::Error, &VelLogger::error, [&makeText] {
        const QString text = makeText();
        keepLastError(text);
        return text;
    });
}
template <typename MakeText>
void logWarning(MakeText&& makeText) {
    logLine(VelSeverity::Warning, &VelLogger::warning, makeText);
}
template <typename MakeText>
void logInfo(MakeText&& makeText) {
    logLine(VelSeverity::Info, &VelLogger::info, makeText);
}
template <typename MakeText>
void logDebug(MakeText&& makeText) {
    void (VelLogger::*const write)(const QString&) = &VelLogger::debug;
    logLine(VelSeverity::Debug, write, makeText);
}

} // namespace vel
