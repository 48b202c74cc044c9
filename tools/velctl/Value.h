// A value of any D-Bus type, held with its signature, so that it can be shown, written down and sent again as
// it was.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <vector>

namespace velctl {

struct Value {
    /// One complete type; "{kv}" for the entries of a dictionary.
    QByteArray type;

    /// The value of a basic type; of "ay", the bytes.
    QVariant basic;

    /// A variant's content, an array's elements, a dictionary's entries, an entry's key and value, a
    /// structure's members, all in the order in which they stand in the message.
    std::vector<Value> children;
};

/// Reads what Qt gives for an argument of a received message.
Value valueOf(const QVariant& received);

/// A value as it can be put into a message. Throws a QString with the reason when it cannot be sent.
QVariant toSend(const Value& value);

/// Short makers for what the program itself sends.
Value textValue(const QString& text);
Value intValue(int number);
Value boolValue(bool truth);
Value variantOf(Value content);

} // namespace velctl
