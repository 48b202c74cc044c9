// Qt knows the keys of an enumeration and the size of its values, and no more.
#include "typed/Enumerations.h"

#include "typed/Numbers.h"

#include <type_traits>

namespace vel::typed {

namespace {

// Whether its values have a sign is not known; its keys tell.
template <typename Signed>
int numberOf(const Type& type, const void* value) {
    const Signed number = *static_cast<const Signed*>(value);
    return type.keys.valueToKey(number) ? int(number) : int(std::make_unsigned_t<Signed>(number));
}

int numberOf(const Type& type, const void* value) {
    switch (QMetaType(type.id).sizeOf()) {
    case sizeof(qint8):
        return numberOf<qint8>(type, value);
    case sizeof(qint16):
        return numberOf<qint16>(type, value);
    case sizeof(qint64):
        return numberOf<qint64>(type, value);
    default:
        return numberOf<qint32>(type, value);
    }
}

void storeKey(const Type& type, int number, void* value) {
    switch (QMetaType(type.id).sizeOf()) {
    case sizeof(qint8):
        *static_cast<qint8*>(value) = qint8(number);
        break;
    case sizeof(qint16):
        *static_cast<qint16*>(value) = qint16(number);
        break;
    case sizeof(qint64):
        *static_cast<qint64*>(value) = number;
        break;
    default:
        *static_cast<qint32*>(value) = number;
    }
}

bool hasKey(const Type& type, int number) {
    return type.keys.isFlag() ? type.keys.keysToValue(type.keys.valueToKeys(number)) == number || number == 0
                              : type.keys.valueToKey(number) != nullptr;
}

} // namespace

bool enumerationToBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch) {
    const int number = numberOf(type, value);
    if (!hasKey(type, number))
        return isNo(type, number, mismatch);
    sent = QString::fromLatin1(type.keys.isFlag() ? type.keys.valueToKeys(number)
                                                  : QByteArray(type.keys.valueToKey(number)));
    return true;
}

bool enumerationFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch) {
    int number = 0;
    bool isKnown = false;
    if (received.userType() == QMetaType::QString) {
        const QByteArray keys = received.toString().toUtf8();
        if (type.keys.isFlag() && keys.isEmpty())
            isKnown = true;
        else
            number = type.keys.isFlag() ? type.keys.keysToValue(keys, &isKnown) : type.keys.keyToValue(keys, &isKnown);
    } else {
        isKnown = storeNumber(QMetaType::Int, received, &number) && hasKey(type, number);
    }
    if (!isKnown)
        return isNo(type, received, mismatch);
    storeKey(type, number, value);
    return true;
}

} // namespace vel::typed
