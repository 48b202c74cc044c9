// Reading values of any type from received messages.
//
// Qt gives basic types, lists of texts and byte arrays as themselves, and everything else as a reader that
// stands at the value. The reader is walked here by what the message says of itself, so that no type has to
// be known beforehand.
#include "Value.h"

#include "Signature.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QStringList>

namespace velctl {

namespace {

Value read(const QDBusArgument& argument);

Value readMembers(const QDBusArgument& argument, Value value) {
    while (!argument.atEnd())
        value.children.push_back(read(argument));
    return value;
}

Value readDictionary(const QDBusArgument& argument, Value value) {
    argument.beginMap();
    while (!argument.atEnd()) {
        argument.beginMapEntry();
        Value entry{elementType(value.type), {}, {}};
        entry.children.push_back(read(argument));
        entry.children.push_back(read(argument));
        argument.endMapEntry();
        value.children.push_back(std::move(entry));
    }
    argument.endMap();
    return value;
}

Value read(const QDBusArgument& argument) {
    Value value{argument.currentSignature().toLatin1(), {}, {}};
    switch (argument.currentType()) {
    case QDBusArgument::ArrayType:
        argument.beginArray();
        value = readMembers(argument, std::move(value));
        argument.endArray();
        return value;
    case QDBusArgument::MapType:
        return readDictionary(argument, std::move(value));
    case QDBusArgument::StructureType:
        argument.beginStructure();
        value = readMembers(argument, std::move(value));
        argument.endStructure();
        return value;
    default:
        return valueOf(argument.asVariant());
    }
}

} // namespace

Value valueOf(const QVariant& received) {
    const int type = received.userType();
    if (type == qMetaTypeId<QDBusArgument>())
        return read(received.value<QDBusArgument>());
    if (type == qMetaTypeId<QDBusVariant>())
        return variantOf(valueOf(received.value<QDBusVariant>().variant()));
    if (type == QMetaType::QStringList) {
        Value value{"as", {}, {}};
        for (const QString& text : received.toStringList())
            value.children.push_back(textValue(text));
        return value;
    }
    return {QDBusMetaType::typeToSignature(type), received, {}};
}

Value textValue(const QString& text) {
    return {"s", text, {}};
}

Value intValue(int number) {
    return {"i", number, {}};
}

Value boolValue(bool truth) {
    return {"b", truth, {}};
}

Value variantOf(Value content) {
    Value value{"v", {}, {}};
    value.children.push_back(std::move(content));
    return value;
}

} // namespace velctl
