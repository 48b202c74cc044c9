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

// How deep a message may be nested (arrays, structures, dictionary entries and variants together) on every bus: whoever
// sends a deeper one loses the connection. libdbus and its daemon allow one level more.
constexpr int deepestNesting = 63;

// What each container adds on the way to a value in it.
constexpr int variantLevels = 1;              // v
constexpr int listLevels = 1 + variantLevels; // a v
constexpr int mapLevels = 2 + variantLevels;  // a {s v}
constexpr int eventLevels = 1 + mapLevels;    // ( a {s v} )

// libdbus's limit for one array (64 MiB); an event's arguments are one. It aborts on an array of bytes above it.
constexpr qint64 largestSize = 64 * 1024 * 1024;

// What any value may add beside its text: signature, length, padding.
constexpr qint64 sizeOfAnyValue = 32;

// Walks a value and what is nested in it, and counts how large it may become.
class Inspection {
public:
    bool passes(const QVariant& value, int level = 0);
    template <typename Map>
    bool passesInside(const Map& values, int level);

private:
    bool passesInside(const QVariantList& values, int level);
    bool passesReceived(const QDBusArgument& argument, int level);
    bool passesReceived(const QVariant& value, int level);
    bool passesText(const QString& text);
    bool passesSize(qint64 bytes) {
        m_size += bytes;
        return m_size <= largestSize;
    }

    qint64 m_size = 0;
};

bool Inspection::passes(const QVariant& value, int level) {
    if (!value.isValid() || level > deepestNesting || !passesSize(sizeOfAnyValue))
        return false;
    const int type = value.userType();
    switch (type) {
    case QMetaType::QString:
        return passesText(value.toString());
    case QMetaType::QByteArray:
        return passesSize(value.toByteArray().size());
    case QMetaType::QStringList: {
        const QStringList texts = value.toStringList();
        return std::all_of(texts.cbegin(), texts.cend(), [this](const QString& text) { return passesText(text); });
    }
    case QMetaType::QVariantList:
        return passesInside(value.toList(), level + listLevels);
    case QMetaType::QVariantMap:
        return passesInside(value.toMap(), level + mapLevels);
    case QMetaType::QVariantHash:
        return passesInside(value.toHash(), level + mapLevels);
    default:
        break;
    }
    if (type == qMetaTypeId<QDBusVariant>())
        return passes(value.value<QDBusVariant>().variant(), level + variantLevels);
    if (type == qMetaTypeId<VelEvent>())
        return passesInside(value.value<VelEvent>().getArguments(), level + eventLevels);
    if (type == qMetaTypeId<QDBusObjectPath>())
        return !value.value<QDBusObjectPath>().path().isEmpty();
    if (type == qMetaTypeId<QDBusSignature>())
        return !value.value<QDBusSignature>().signature().isEmpty();
    if (type == qMetaTypeId<QDBusUnixFileDescriptor>())
        return value.value<QDBusUnixFileDescriptor>().isValid();
    if (type == qMetaTypeId<QDBusArgument>())
        return passesReceived(value.value<QDBusArgument>(), level);
    return QDBusMetaType::typeToSignature(type) != nullptr;
}

bool Inspection::passesInside(const QVariantList& values, int level) {
    return std::all_of(values.cbegin(), values.cend(),
                       [this, level](const QVariant& value) { return passes(value, level); });
}

template <typename Map>
bool Inspection::passesInside(const Map& values, int level) {
    for (auto entry = values.cbegin(); entry != values.cend(); ++entry) {
        if (!passesText(entry.key()) || !passes(entry.value(), level))
            return false;
    }
    return true;
}

// A container that was received is sent on as it is, and must only be neither too deep nor too large. It is walked by
// its reader; each container that was begun is ended, whatever was found in it: else Qt loses its memory.
bool Inspection::passesReceived(const QDBusArgument& argument, int level) {
    if (level > deepestNesting || argument.currentSignature().isEmpty())
        return false;
    bool passed = true;
    const auto walk = [&](int below) {
        while (passed && !argument.atEnd())
            passed = passesReceived(argument, below);
    };
    const bool isBytes = argument.currentSignature() == QLatin1String("ay");
    switch (isBytes ? QDBusArgument::BasicType : argument.currentType()) {
    case QDBusArgument::StructureType:
        argument.beginStructure();
        walk(level + 1);
        argument.endStructure();
        break;
    case QDBusArgument::ArrayType:
        argument.beginArray();
        walk(level + 1);
        argument.endArray();
        break;
    case QDBusArgument::MapType:
        argument.beginMap();
        while (passed && !argument.atEnd()) {
            argument.beginMapEntry();
            walk(level + 2);
            argument.endMapEntry();
        }
        argument.endMap();
        break;
    default:
        passed = passesReceived(argument.asVariant(), level);
    }
    return passed;
}

bool Inspection::passesReceived(const QVariant& value, int level) {
    const int type = value.userType();
    if (type == qMetaTypeId<QDBusVariant>())
        return passesReceived(value.value<QDBusVariant>().variant(), level + variantLevels);
    if (type == qMetaTypeId<QDBusArgument>())
        return passesReceived(value.value<QDBusArgument>(), level);
    if (level > deepestNesting)
        return false;
    if (type == QMetaType::QByteArray)
        return passesSize(value.toByteArray().size());
    return type == QMetaType::QString ? passesText(value.toString()) : passesSize(sizeOfAnyValue);
}

bool Inspection::passesText(const QString& text) {
    constexpr int longText = 1024 * 1024; // from here on it is worth the conversion to know the length in UTF-8
    const qint64 utf8 = text.size() < longText ? 3 * qint64(text.size()) : text.toUtf8().size();
    return passesSize(utf8 + sizeOfAnyValue);
}

} // namespace

bool vel::isMarshallable(const QVariant& value) {
    return Inspection().passes(value);
}

bool vel::isMarshallableEvent(const QVariantMap& arguments) {
    return Inspection().passesInside(arguments, eventLevels);
}
