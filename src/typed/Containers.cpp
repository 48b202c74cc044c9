// Lists are walked by Qt's own access to containers, maps by functions that FieldTypes has made, structs by their record.
#include "typed/Containers.h"

#include "log/SafeText.h"
#include "typed/ListAccess.h"
#include "typed/Record.h"
#include "typed/Values.h"

namespace vel::typed {

namespace {

void putInFront(Mismatch& mismatch, const QString& place) {
    mismatch.field = place + mismatch.field;
}

} // namespace

bool listToBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch) {
    const Type& element = typeOf(type.element);
    QVariantList list;
    const bool isWhole = forEachElement(type.id, value, [&](const void* entry) {
        QVariant sentElement;
        const bool isSent = toBus(element, entry, sentElement, mismatch);
        if (!isSent)
            putInFront(mismatch, QStringLiteral("[%1]").arg(list.size()));
        list << sentElement;
        return isSent;
    });
    sent = list;
    return isWhole;
}

bool listFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch) {
    QVariantList list = received.toList(); // of texts too
    if (received.userType() == QMetaType::QByteArray) {
        const QByteArray bytes = received.toByteArray();
        for (const char byte : bytes)
            list << QVariant::fromValue(uchar(byte));
    } else if (received.userType() != QMetaType::QVariantList && received.userType() != QMetaType::QStringList) {
        return isNo(type, received, mismatch);
    }
    const Type& element = typeOf(type.element);
    for (int index = 0; index < list.size(); ++index) {
        Holder made(element);
        if (!fromBus(element, list.at(index), made.data(), mismatch)) {
            putInFront(mismatch, QStringLiteral("[%1]").arg(index));
            return false;
        }
        appendElement(type.id, value, made.data());
    }
    return true;
}

bool mapToBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch) {
    const Type& element = typeOf(type.element);
    QVariantMap map;
    bool isWhole = true;
    type.map.forEach(value, [&](const QString& key, const void* entry) {
        QVariant sentEntry;
        if (isWhole && !toBus(element, entry, sentEntry, mismatch)) {
            isWhole = false;
            putInFront(mismatch, QLatin1Char('[') + quoted(key) + QLatin1Char(']'));
        }
        map.insert(key, sentEntry);
    });
    sent = map;
    return isWhole;
}

bool mapFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch) {
    if (received.userType() != QMetaType::QVariantMap)
        return isNo(type, received, mismatch);
    const Type& element = typeOf(type.element);
    const QVariantMap map = received.toMap();
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
        Holder made(element);
        if (!fromBus(element, entry.value(), made.data(), mismatch)) {
            putInFront(mismatch, QLatin1Char('[') + quoted(entry.key()) + QLatin1Char(']'));
            return false;
        }
        type.map.insert(value, entry.key(), made.data());
    }
    return true;
}

bool gadgetToBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch) {
    QVariantMap fields;
    if (!recordOf(*type.gadget).write(value, fields, mismatch)) {
        putInFront(mismatch, QStringLiteral("."));
        return false;
    }
    sent = fields;
    return true;
}

bool gadgetFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch) {
    if (received.userType() != QMetaType::QVariantMap)
        return isNo(type, received, mismatch);
    if (!recordOf(*type.gadget).read(received.toMap(), value, mismatch)) {
        putInFront(mismatch, QStringLiteral("."));
        return false;
    }
    return true;
}

} // namespace vel::typed
