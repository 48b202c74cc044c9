// Making text that a stranger may have written safe for a terminal and for a log.
#pragma once

#include <QByteArray>
#include <QString>

namespace wire {

/// The text with every character made visible that would move the cursor, begin a command to the terminal, end the
/// line, or reorder what is shown: the controls (C0, DEL, C1), line and paragraph separators, the marks that set the
/// direction of writing, and the byte-order mark, which Qt drops at a text's beginning. They become \n, \r, \t or
/// \uXXXX; everything else stays. In a JSON text, where they can only stand in strings, the result is JSON of the same
/// value.
[[nodiscard]] QByteArray printable(const QByteArray& utf8);
[[nodiscard]] QString printable(const QString& text);

} // namespace wire
