// Values as people write them on a command line, and as they are shown to them.
#pragma once

#include "Value.h"

namespace velctl {

/// The value that a text means by its form: true and false, whole and other numbers, [lists], and else the
/// text itself.
Value byForm(const QString& text);

/// The value of a given type that the text means. Containers may be written as JSON; arrays also as
/// [a, b, c]. Throws a QString with the reason when there is none.
Value byType(const QByteArray& type, const QString& text);

/// The text that gives the value back under byType().
QString plainText(const Value& value);

/// One argument of an event as `velctl publish` takes it: NAME:=TYPE:VALUE, quoted for the shell when needed.
QString argumentText(const QString& name, const Value& value);

/// Quoted for the shell when it has to be; characters that would disturb a terminal are made visible.
QString shellWord(const QString& text);

} // namespace velctl
