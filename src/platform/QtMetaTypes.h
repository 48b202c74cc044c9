// Qt's types by their numbers, in the words of Qt 5 and of Qt 6.
//
// Qt 6 asks for a QMetaType where Qt 5 takes a number. Numbers serve both: a QVariant tells the number of its type, and a map
// can be sorted by it.
#pragma once

#include <QDBusMetaType>
#include <QMetaType>
#include <QVariant>

namespace vel::metatypes {

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
using Handle = QMetaType;
inline int idOf(const QByteArray& name) {
    return QMetaType::fromName(name).id();
}
inline int idOf(QMetaType type) {
    return type.id();
}
#else
using Handle = int;
inline int idOf(const QByteArray& name) {
    return QMetaType::type(name);
}
inline int idOf(int type) {
    return type;
}
#endif

/// The signature of the type's D-Bus form; null, if it has none.
inline const char* signatureOf(int type) {
    return QDBusMetaType::typeToSignature(Handle(type));
}

/// A value of the type: a copy, or empty.
inline QVariant makeValue(int type, const void* copied = nullptr) {
    return QVariant(Handle(type), copied);
}

} // namespace vel::metatypes
