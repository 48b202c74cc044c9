// One log line on its way into Qt's message logging.
#pragma once

#include <QByteArray>
#include <QString>

namespace vellogging {

/// The threshold of each severity: a line is written when the logger's level is strictly greater.
enum class Severity { Error = 2, Warning = 3, Info = 5, Debug = 6 };

inline bool passes(Severity severity, int level) {
    return level > static_cast<int>(severity);
}

/// Hands `text` to Qt's message handler, unchanged. Qt's category rules are not asked: the level is the one rule.
///
/// Do not:   pass a category that dies before the process; a handler may keep the context it was given.
void writeLine(Severity severity, const QByteArray& category, const QString& text);

} // namespace vellogging
