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
#pragma once

#include "Value.h"

#include <QJsonObject>
#include <QJsonValue>

namespace velctl {

/// The value without its type.
QJsonValue toJson(const Value& value);

/// {"type": ..., "value": ...}
QJsonObject toTypedJson(const Value& value);

/// The inverses. Numbers are taken for x and t, too. Throw a QString with the reason when the JSON is not of
/// that type.
Value fromJson(const QByteArray& type, const QJsonValue& json);
Value fromTypedJson(const QJsonObject& json);

/// Whether D-Bus can carry the text: JSON can also write zeros and halves of surrogate pairs, which would arrive as another
/// text.
bool isSendableText(const QString& text);

/// One line of JSON for any value.
QString jsonText(const QJsonValue& json);

} // namespace velctl
