// Values as people write them on a command line, and as they are shown to them.
#pragma once

#include "wire/Appender.h"

#include <QString>

namespace wire {

/// The type that a text has by its form: true and false are "b", whole numbers "i", or "x" or "t" where they need it,
/// other numbers "d", [a,b] is "as" when all in it are texts and else "av", anything else is "s".
/// Throws an Error for a number that no type of a number can hold.
QByteArray typeByForm(const QString& text);

/// Appends the value that the text means by its form, which is of typeByForm(). In lists, "quotes" make a text of
/// anything.
void appendByForm(Appender& to, const QString& text);

/// Appends the value of that complete type that the text means. Containers may be written as JSON, arrays also as
/// [a,b]. Throws an Error when there is none, and what Appender throws.
void appendByType(Appender& to, const QByteArray& type, const QString& text);

/// Writes the text that appendByType() takes for the value at which the iterator stands, which stays there. A text is
/// written as it is: see printable().
void writeText(DBusMessageIter* value, const Sink& to);

} // namespace wire
