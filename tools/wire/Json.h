// Values as JSON that loses nothing: the type goes along wherever the surroundings do not fix it.
//
//   b                    true, false
//   y n q i u            number
//   x t                  text of digits: beyond 2^53 a JSON number is not exact
//   d                    number; text for "-0", "inf", "-inf" and "nan:BITS" (16 hexadecimal digits)
//   s o g                text
//   ay                   text, base64
//   v                    {"type": SIGNATURE, "value": VALUE}
//   arrays, structures   [VALUE, ...]
//   dictionaries         [[KEY, VALUE], ...], since an object keeps neither order nor kinds of keys
//   h                    null: a descriptor means nothing to another process, and is not read back
//
// What is written is one line, without blanks, and safe for a terminal.
#pragma once

#include "wire/Appender.h"

#include <QJsonObject>
#include <QJsonValue>

namespace wire {

/// Writes the value at which the iterator stands. The iterator stays there.
void writeJson(DBusMessageIter* value, const Sink& to);

/// The same with its type, as {"type": ..., "value": ...}.
void writeTypedJson(DBusMessageIter* value, const Sink& to);

/// The same as writeJson() to be looked at; null when it is longer than the 16 MiB that are worth it.
QJsonValue jsonOf(DBusMessageIter& value);

/// A text as a JSON string, with its quotes.
QByteArray jsonString(const QByteArray& utf8);
inline QByteArray jsonString(const QString& text) {
    return jsonString(text.toUtf8());
}

/// Appends a value of that type, which is complete, or of the type that the object names. Numbers are taken for x and
/// t, too. Throws an Error when the JSON is not of that type, and what Appender throws.
void appendJson(Appender& to, const QByteArray& type, const QJsonValue& json);
void appendTypedJson(Appender& to, const QJsonObject& json);

/// The complete type that an object as writeTypedJson() writes it names. Throws an Error when it names none.
QByteArray typeIn(const QJsonObject& json);

/// One line of JSON for any value, cut where it is longer than a person reads: for the reason in an Error.
QString jsonText(const QJsonValue& json);

} // namespace wire
