// Qt D-Bus hands on arrays and dictionaries as it found them; here they are read to the bottom.
#include "typed/Received.h"

#include "log/SafeText.h"
#include "typed/Numbers.h"
#include "typed/Types.h"

#include <QDBusArgument>
#include <QDBusVariant>

namespace vel::typed {

namespace {

QVariant readWhole(const QDBusArgument& argument) {
    switch (argument.currentType()) {
    case QDBusArgument::ArrayType: {
        QVariantList list;
        argument.beginArray();
        while (!argument.atEnd())
            list << unwrapped(argument.asVariant());
        argument.endArray();
        return list;
    }
    case QDBusArgument::MapType: {
        QVariantMap map;
        bool hasTexts = true;
        argument.beginMap();
        while (!argument.atEnd()) {
            argument.beginMapEntry();
            const QVariant key = argument.asVariant();
            hasTexts = hasTexts && key.userType() == QMetaType::QString;
            map.insert(key.toString(), unwrapped(argument.asVariant()));
            argument.endMapEntry();
        }
        argument.endMap();
        return hasTexts ? QVariant(map) : QVariant();
    }
    default:
        return QVariant::fromValue(argument);
    }
}

QString described(const QVariant& received) {
    if (!received.isValid())
        return QStringLiteral("nothing");
    const QVariant value = unwrapped(received);
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return QStringLiteral("a dictionary whose keys are no texts");
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QMetaType::QString:
        return QStringLiteral("text ") + quoted(value.toString());
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return QStringLiteral("an array");
    case QMetaType::QByteArray:
        return QStringLiteral("an array of bytes");
    case QMetaType::QVariantMap:
        return QStringLiteral("a dictionary");
    default:
        break;
    }
    if (isNumber(value.userType()))
        return QStringLiteral("number ") + value.toString();
    return value.userType() == qMetaTypeId<QDBusArgument>() ? QStringLiteral("a structure")
                                                            : QString::fromLatin1(value.typeName());
}

} // namespace

QString Mismatch::text() const {
    return QStringLiteral("%1 is %2, wanted %3")
        .arg(field.isEmpty() ? QStringLiteral("it") : QStringLiteral("field '%1'").arg(field), came, wanted);
}

QVariant unwrapped(const QVariant& received) {
    if (received.userType() == qMetaTypeId<QDBusVariant>())
        return unwrapped(received.value<QDBusVariant>().variant());
    if (received.userType() == qMetaTypeId<QDBusArgument>())
        return readWhole(received.value<QDBusArgument>());
    return received;
}

bool isNo(const Type& type, const QVariant& received, Mismatch& mismatch) {
    mismatch = {QString(), described(received), type.name()};
    return false;
}

} // namespace vel::typed
