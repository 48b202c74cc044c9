// D-Bus type signatures, and the names that people use for them.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

namespace wire {

/// Whether the text is exactly one complete type that the bus allows.
bool isCompleteType(const QByteArray& signature);

/// The complete types in a container: of a structure or a dictionary's entry its members, of an array its element.
/// `container` is a complete type, or the entry of one.
QVector<QByteArray> typesIn(const QByteArray& container);

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

/// "bool, int, ...": the names that typeByName() knows.
QString knownTypeNames();

/// The type's name in an event's table of types, where modules record the names of Qt's types.
QByteArray qtTypeName(const QByteArray& signature);

} // namespace wire
