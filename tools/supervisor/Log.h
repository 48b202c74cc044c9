// The supervisor's log lines: to the module's default logger, under the rule that every module's lines follow.
#pragma once

#include <VelLogger>

inline void logInfo(const QString& text) {
    if (logger("")->level() > 5)
        logger("")->info(text);
}

inline void logWarning(const QString& text) {
    if (logger("")->level() > 3)
        logger("")->warning(text);
}

inline void logError(const QString& text) {
    if (logger("")->level() > 2)
        logger("")->error(text);
}
