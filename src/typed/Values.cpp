// Conversions of single values, by what Qt's type system knows of their types.
//
// To the bus: what Qt D-Bus has a form for is sent in that form, so that it is what a module that puts the value into the
// arguments by hand sends. Everything else becomes one of a few forms: a number, a text, a list (av) or a map (a{sv}).
//
// From the bus: a peer may be written in anything, and a person may type an event. So it is not the form that is asked for,
// but the value: a number is taken from any numeric type that holds it exactly, a list from any array. A number is never
// taken from a text, and true is no number: these are mistakes of the publisher.
#include "typed/Values.h"

#include "typed/Containers.h"
#include "typed/Enumerations.h"
#include "typed/Numbers.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QUrl>

namespace vel::typed {

namespace {

bool textsFromBus(const QVariant& received, QStringList& texts) {
    const QVariantList list = received.toList();
    for (const QVariant& text : list) {
        if (text.userType() != QMetaType::QString)
            return false;
        texts << text.toString();
    }
    return received.userType() == QMetaType::QVariantList;
}

bool plainFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch) {
    if (received.userType() == type.id) {
        QMetaType(type.id).destruct(value);
        QMetaType(type.id).construct(value, received.constData());
        return true;
    }
    if (received.userType() == qMetaTypeId<QDBusVariant>())
        return plainFromBus(type, received.value<QDBusVariant>().variant(), value, mismatch);
    // An array or a structure, which Qt has not read yet. Its reader trusts the form, so that is compared first.
    if (received.userType() == qMetaTypeId<QDBusArgument>()) {
        const QDBusArgument argument = received.value<QDBusArgument>();
        if (argument.currentSignature() == QLatin1String(metatypes::signatureOf(type.id)))
            return QDBusMetaType::demarshall(argument, metatypes::Handle(type.id), value);
    }
    if (type.map.insert)
        return mapFromBus(type, unwrapped(received), value, mismatch);
    if (type.element)
        return listFromBus(type, unwrapped(received), value, mismatch);
    if (type.id == QMetaType::QStringList && textsFromBus(unwrapped(received), *static_cast<QStringList*>(value)))
        return true;
    return isNo(type, received, mismatch);
}

// What Qt turns into a text and back.
QString textOf(const Type& type, const void* value) {
    return type.id == QMetaType::QUrl ? static_cast<const QUrl*>(value)->toString() : *static_cast<const QChar*>(value);
}

bool textFromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch) {
    const QString text = received.toString();
    const bool isUrl = type.id == QMetaType::QUrl;
    if (received.userType() != QMetaType::QString || (!isUrl && text.size() != 1))
        return isNo(type, received, mismatch);
    if (isUrl)
        *static_cast<QUrl*>(value) = QUrl(text);
    else
        *static_cast<QChar*>(value) = text.at(0);
    return true;
}

} // namespace

bool toBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch) {
    if (type.isSentAsItIs) {
        sent = metatypes::makeValue(type.id, value);
        return true;
    }
    switch (type.kind) {
    case Type::Number:
        sent = numberToBus(type.id, value);
        return true;
    case Type::Any:
        sent = *static_cast<const QVariant*>(value);
        return sent.isValid() || isNo(type, sent, mismatch);
    case Type::Text:
        sent = textOf(type, value);
        return true;
    case Type::Enumeration:
        return enumerationToBus(type, value, sent, mismatch);
    case Type::Gadget:
        return gadgetToBus(type, value, sent, mismatch);
    case Type::ListOf:
        return listToBus(type, value, sent, mismatch);
    case Type::MapOf:
        return mapToBus(type, value, sent, mismatch);
    case Type::Optional:
        if (const void* held = type.optional.get(value))
            return toBus(typeOf(type.element), held, sent, mismatch);
        sent = QVariant();
        return true;
    default:
        break;
    }
    return isNo(type, QVariant(), mismatch);
}

bool fromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch) {
    switch (type.kind) {
    case Type::Number:
        return storeNumber(type.id, unwrapped(received), value) || isNo(type, received, mismatch);
    case Type::Plain:
        return plainFromBus(type, received, value, mismatch);
    case Type::Any:
        *static_cast<QVariant*>(value) = unwrapped(received);
        return true;
    case Type::List:
    case Type::Map:
        return plainFromBus(type, unwrapped(received), value, mismatch);
    case Type::Text:
        return textFromBus(type, unwrapped(received), value, mismatch);
    case Type::Enumeration:
        return enumerationFromBus(type, unwrapped(received), value, mismatch);
    case Type::Gadget:
        return gadgetFromBus(type, unwrapped(received), value, mismatch);
    case Type::ListOf:
        return listFromBus(type, unwrapped(received), value, mismatch);
    case Type::MapOf:
        return mapFromBus(type, unwrapped(received), value, mismatch);
    case Type::Optional: {
        const Type& element = typeOf(type.element);
        Holder held(element);
        if (!fromBus(element, received, held.data(), mismatch))
            return false;
        type.optional.set(value, held.data());
        return true;
    }
    case Type::Unknown:
        break;
    }
    return isNo(type, received, mismatch);
}

} // namespace vel::typed
