// D-Bus type signatures: taking them apart, and the names that people use for them.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace velctl {

/// Whether the text is exactly one complete type that the bus allows.
bool isCompleteType(const QByteArray& signature);

/// The complete types that stand one after the other in a signature.
QList<QByteArray> completeTypes(const QByteArray& signature);

/// What an array or dictionary holds ("ai": "i"), or what stands in a structure or dictionary entry.
QByteArray elementType(const QByteArray& array);
QList<QByteArray> memberTypes(const QByteArray& structure);

inline bool isArray(const QByteArray& type) {
    return type.startsWith('a');
}
inline bool isDictionary(const QByteArray& type) {
    return type.startsWith("a{");
}
inline bool isBasic(const QByteArray& type) {
    return type.size() == 1 && type != "v";
}

/// The name by which people give a type, "int" for "i"; the signature itself where there is none.
QString typeName(const QByteArray& signature);

/// The signature of a type given by such a name, or by a signature; empty when it is neither.
QByteArray typeByName(const QString& name);

/// "int, bool, ...": what typeByName() knows.
QString knownTypeNames();

/// The type's name in an event's table of types, where modules record the names of Qt's types.
QString qtTypeName(const QByteArray& signature);

} // namespace velctl
