// Whether a value can go into a D-Bus message: a walk over the containers that Qt D-Bus marshals natively.
#include "events/Marshallable.h"

#include "events/VelEvent.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>

#include <algorithm>

namespace {

// libdbus refuses a message nested deeper than this (arrays, structures, dictionary entries and variants together),
// and the bus daemon ends the connection of whoever sends one.
constexpr int deepestNesting = 64;

// What each container adds on the way to a value in it.
constexpr int variantLevels = 1;              // v
constexpr int listLevels = 1 + variantLevels; // a v
constexpr int mapLevels = 2 + variantLevels;  // a {s v}
constexpr int eventLevels = 1 + mapLevels;    // ( a {s v} )

bool isMarshallableAt(const QVariant& value, int level);

template <typename Container>
bool allMarshallable(const Container& values, int level) {
    return std::all_of(values.cbegin(), values.cend(),
                       [level](const QVariant& value) { return isMarshallableAt(value, level); });
}

bool isMarshallableAt(const QVariant& value, int level) {
    if (!value.isValid() || level > deepestNesting)
        return false;
    const int type = value.userType();
    if (type == QMetaType::QVariantList)
        return allMarshallable(value.toList(), level + listLevels);
    if (type == QMetaType::QVariantMap)
        return allMarshallable(value.toMap(), level + mapLevels);
    if (type == qMetaTypeId<QDBusVariant>())
        return isMarshallableAt(value.value<QDBusVariant>().variant(), level + variantLevels);
    if (type == qMetaTypeId<VelEvent>())
        return allMarshallable(value.value<VelEvent>().getArguments(), level + eventLevels);
    if (type == qMetaTypeId<QDBusObjectPath>())
        return !value.value<QDBusObjectPath>().path().isEmpty();
    if (type == qMetaTypeId<QDBusSignature>())
        return !value.value<QDBusSignature>().signature().isEmpty();
    if (type == qMetaTypeId<QDBusUnixFileDescriptor>())
        return value.value<QDBusUnixFileDescriptor>().isValid();
    if (type == qMetaTypeId<QDBusArgument>())
        return !value.value<QDBusArgument>().currentSignature().isEmpty();
    return QDBusMetaType::typeToSignature(type) != nullptr;
}

} // namespace

bool vel::isMarshallable(const QVariant& value) {
    return isMarshallableAt(value, 0);
}
