// Those of velctl's exit statuses that the demo meets.
#pragma once

namespace velctl_status {
inline constexpr int failed = 1;
inline constexpr int notRunning = 3; ///< or stopped
inline constexpr int answeredWithError = 5;
} // namespace velctl_status
