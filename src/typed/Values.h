// Single values between their C++ types and the bus.
#pragma once

#include "typed/Record.h"
#include "typed/VelFieldTypes.h"

#include <QMetaEnum>

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
        : m_isAny(type.kind == Type::Any), m_value(m_isAny ? QVariant() : QVariant(type.id, nullptr)) {}

    /// Where the value lies.
    void* data() { return m_isAny ? &m_value : m_value.data(); }

    /// The value in a variant.
    const QVariant& variant() const { return m_value; }

private:
    const bool m_isAny;
    QVariant m_value;
};

/// The value of that type as it goes into a message.
///
/// Result:   false when it has no form there, an enumeration's value without a key for one.
[[nodiscard]] bool toBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch);

/// Fills `value`, which is of that type, from what came in a message.
///
/// Result:   false when that does not convert without loss.
[[nodiscard]] bool fromBus(const Type& type, const QVariant& received, void* value, Mismatch& mismatch);

} // namespace vel::typed
