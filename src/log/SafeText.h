// Text of others in a log line.
#pragma once

#include <QString>

namespace vel {

/// `text` without what could steer a terminal, break the line or turn its direction: such characters are shown by
/// their numbers ("\x1b", "\u202e"). At most 200 characters, then "...".
QString safeText(const QString& text);

/// The same between single quotes, as objects are named in log lines.
QString quoted(const QString& text);

} // namespace vel
