// The last error line that this library has written.
#pragma once

#include <QString>

namespace vel {

struct LastError {
    QString text;               ///< empty: there was none yet
    qint64 millisecondsUtc = 0; ///< since 1970
};

/// Keeps a line and the time; at most its first 1,000 characters. Leaves it, too, in the file that VEL_LAST_ERROR names, for a
/// supervisor to read when this process has ended. Thread: any.
void keepLastError(const QString& text);

/// What was kept last. Thread: any.
LastError lastError();

} // namespace vel
