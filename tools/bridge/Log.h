// The bridge's log lines: to the module's default logger, which filters them by its level. Whatever they quote is safe.
#pragma once

#include "wire/Shown.h"

#include <VelLogger>

inline void logInfo(const QString& text) {
    logger("")->info(shown(text));
}

inline void logWarning(const QString& text) {
    logger("")->warning(shown(text));
}

inline void logError(const QString& text) {
    logger("")->error(shown(text));
}
