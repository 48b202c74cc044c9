// What the typed layer knows of Qt's metatypes: of which kind they are, and what they are made of.
#pragma once

#include "platform/QtMetaTypes.h"
#include "typed/VelFieldTypes.h"

#include <QMetaEnum>
#include <QMetaObject>
#include <QVariant>

namespace vel::typed {

/// What the typed layer knows of one of Qt's metatypes.
struct Type {
    enum Kind {
        Unknown,
        Plain,  // Qt D-Bus has a form for it
        Number, // ... a number
        Any,    // QVariant
        List,   // QVariantList
        Map,    // QVariantMap
        Text,   // goes as a text, for which Qt has the conversion both ways
        Enumeration,
        Gadget,
        ListOf,
        MapOf,
        Optional,
    };

    explicit Type(int metatype, Kind itsKind = Unknown) : id(metatype), kind(itsKind) {}

    int id;
    Kind kind;
    bool isSentAsItIs = false;
    QMetaEnum keys;                      // Enumeration
    const QMetaObject* gadget = nullptr; // Gadget
    int element = 0;                     // ListOf, MapOf, Optional
    MapAccess map{};                     // MapOf
    OptionalAccess optional{};           // Optional

    QString name() const; ///< "int", "Light::Mode"
};

/// What is known of a metatype; made once, and kept for the life of the process. Thread: any.
const Type& typeOf(int id);

/// A value of any type, made empty.
class Holder {
public:
    explicit Holder(const Type& type)
        : m_isAny(type.kind == Type::Any), m_value(m_isAny ? QVariant() : metatypes::makeValue(type.id)) {}

    /// Where the value lies.
    void* data() { return m_isAny ? &m_value : m_value.data(); }

    /// The value in a variant.
    const QVariant& variant() const { return m_value; }

private:
    const bool m_isAny;
    QVariant m_value;
};

} // namespace vel::typed
