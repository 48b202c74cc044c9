// One log line on its way into Qt's message logging.
#pragma once

#include "platform/VelLogger.h"

#include <QByteArray>
#include <QString>

namespace vellogging {

inline bool passes(VelSeverity severity, int level) {
    return level > static_cast<int>(severity);
}

/// Hands `text` to Qt's message handler, unchanged. Qt's category rules are not asked: the level is the one rule.
///
/// Do not:   pass a category that dies before the process; a handler may keep the context it was given.
void writeLine(VelSeverity severity, const QByteArray& category, const QString& text);

} // namespace vellogging
