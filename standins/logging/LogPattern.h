// The form in which Qt prints the lines, where the program has not chosen its own.
#pragma once

namespace vellogging {

/// Sets a readable message pattern, unless QT_MESSAGE_PATTERN or the program has set one.
///
/// Under the journal (JOURNAL_STREAM is set) lines begin with the syslog priority instead of the time: the journal
/// strips "<N>" and files the line under it, and it keeps the time itself.
void setPatternUnlessChosen();

} // namespace vellogging
