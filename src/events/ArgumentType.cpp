// The type name that travels with an argument.
#include "events/ArgumentType.h"

// The usual names cost nothing to hand out: each argument of each event that is published has one.
QString vel::typeNameOf(const QVariant& value) {
    switch (value.userType()) {
    case QMetaType::Bool:
        return QStringLiteral("bool");
    case QMetaType::Int:
        return QStringLiteral("int");
    case QMetaType::Double:
        return QStringLiteral("double");
    case QMetaType::QString:
        return QStringLiteral("QString");
    case QMetaType::QStringList:
        return QStringLiteral("QStringList");
    default:
        return QString::fromLatin1(value.typeName());
    }
}
