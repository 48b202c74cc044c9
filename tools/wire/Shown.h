// Text that a stranger may have written, safe for a terminal and short enough for a log line or an answer.
#pragma once

#include <QString>

/// The text with its control characters made visible, and with its middle left out when it is longer than `longest`
/// characters.
QString shown(const QString& text, int longest = 4000);

/// The same for a name, in quotes.
QString quotedName(const QString& name);
