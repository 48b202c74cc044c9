// How many bytes values take in a D-Bus message.
//
// D-Bus aligns each value to its own size, counted from the message's start; the body begins at a multiple of eight. An
// array is a length, the padding of its first element, which its length does not count, and the elements.
#include "events/WireSize.h"

#include "events/VelEvent.h"
#include "platform/QtMetaTypes.h"

#include <QAssociativeIterable>
#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusVariant>
#include <QSequentialIterable>

#include <algorithm>

namespace {

constexpr int structureAlignment = 8;

// Zero for a type of variable size.
int fixedSize(char type) {
    switch (type) {
    case 'y':
        return 1;
    case 'n':
    case 'q':
        return 2;
    case 'b':
    case 'i':
    case 'u':
    case 'h':
        return 4;
    case 'x':
    case 't':
    case 'd':
        return 8;
    default:
        return 0;
    }
}

int alignmentOf(char type) {
    switch (type) {
    case 's':
    case 'o':
    case 'a':
        return 4;
    case 'g':
    case 'v':
        return 1;
    case '(':
    case '{':
        return structureAlignment;
    default:
        return fixedSize(type);
    }
}

QByteArray signatureOf(const QVariant& value) {
    if (value.userType() == qMetaTypeId<QDBusArgument>())
        return value.value<QDBusArgument>().currentSignature().toLatin1();
    return QByteArray(vel::metatypes::signatureOf(value.userType()));
}

} // namespace

namespace vel {

void WireSize::pad(int alignment) {
    m_bytes = (m_bytes + alignment - 1) / alignment * alignment;
}

void WireSize::add(int alignment, qint64 size) {
    pad(alignment);
    m_bytes += size;
}

void WireSize::addText(const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    const int end = utf8.indexOf('\0'); // where Qt, which hands over a C string, ends the text
    add(4, 4 + (end < 0 ? utf8.size() : end) + 1);
}

void WireSize::addSignature(const QByteArray& signature) {
    m_bytes += 1 + signature.size() + 1;
}

template <typename AddElements>
void WireSize::addArray(char elementType, AddElements&& addElements) {
    add(4, 4);
    pad(alignmentOf(elementType));
    const qint64 begin = m_bytes;
    addElements();
    m_largestArray = std::max(m_largestArray, m_bytes - begin);
}

void WireSize::addVariant(const QVariant& value) {
    addSignature(signatureOf(value));
    addValue(value);
}

void WireSize::addTextMap(const QMap<QString, QString>& map) {
    addArray('{', [&] {
        for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
            pad(structureAlignment);
            addText(entry.key());
            addText(entry.value());
        }
    });
}

template <typename Map>
void WireSize::addVariantMap(const Map& map) {
    addArray('{', [&] {
        for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
            pad(structureAlignment);
            addText(entry.key());
            addVariant(entry.value());
        }
    });
}
template void WireSize::addVariantMap(const QVariantMap& map);
template void WireSize::addVariantMap(const QVariantHash& map);

void WireSize::addEvent(const QString& name, const QString& context, const QMap<QString, QString>& types,
                        const QVariantMap& arguments) {
    pad(structureAlignment);
    addText(name);
    addText(context);
    add(4, 4);
    addTextMap(types);
    addVariantMap(arguments);
}

void WireSize::addValue(const QVariant& value) {
    const int type = value.userType();
    switch (type) {
    case QMetaType::QString:
        return addText(value.toString());
    case QMetaType::QByteArray:
        return addArray('y', [&] { m_bytes += value.toByteArray().size(); });
    case QMetaType::QStringList:
        return addArray('s', [&] {
            for (const QString& text : value.toStringList())
                addText(text);
        });
    case QMetaType::QVariantList:
        return addArray('v', [&] {
            for (const QVariant& element : value.toList())
                addVariant(element);
        });
    case QMetaType::QVariantMap:
        return addVariantMap(value.toMap());
    case QMetaType::QVariantHash:
        return addVariantMap(value.toHash());
    default:
        break;
    }
    if (type == qMetaTypeId<QDBusVariant>())
        return addVariant(value.value<QDBusVariant>().variant());
    if (type == qMetaTypeId<QDBusObjectPath>())
        return addText(value.value<QDBusObjectPath>().path());
    if (type == qMetaTypeId<QDBusSignature>())
        return addSignature(value.value<QDBusSignature>().signature().toLatin1());
    if (type == qMetaTypeId<QDBusArgument>())
        return addReceived(value.value<QDBusArgument>());
    if (type == qMetaTypeId<VelEvent>()) {
        const auto event = value.value<VelEvent>();
        return addEvent(event.getEvtName(), event.getContext(), event.getArgTypes(), event.getArguments());
    }
    const char* const signature = vel::metatypes::signatureOf(type);
    if (!signature || addContainer(value, signature))
        return;
    if (const int size = fixedSize(*signature))
        add(size, size);
    else
        pad(alignmentOf(*signature));
}

// A list or map of a type of its own, as qDBusRegisterMetaType() makes known. False for what is none.
bool WireSize::addContainer(const QVariant& value, const char* signature) {
    if (*signature != 'a')
        return false;
    if (signature[1] == '{' && value.canConvert<QVariantMap>()) {
        const auto map = value.value<QAssociativeIterable>();
        addArray('{', [&] {
            for (auto entry = map.begin(); entry != map.end(); ++entry) {
                pad(structureAlignment);
                addValue(entry.key());
                addValue(entry.value());
            }
        });
        return true;
    }
    if (!value.canConvert<QVariantList>())
        return false;
    const auto list = value.value<QSequentialIterable>();
    addArray(signature[1], [&] {
        if (const int size = fixedSize(signature[1])) {
            m_bytes += qint64(size) * list.size();
            return;
        }
        for (const QVariant& element : list)
            addValue(element);
    });
    return true;
}

void WireSize::addReceived(const QDBusArgument& argument) {
    const QString signature = argument.currentSignature();
    const auto addAll = [&] {
        while (!argument.atEnd())
            addReceived(argument);
    };
    switch (signature == QLatin1String("ay") ? QDBusArgument::BasicType : argument.currentType()) {
    case QDBusArgument::StructureType:
        pad(structureAlignment);
        argument.beginStructure();
        addAll();
        argument.endStructure();
        break;
    case QDBusArgument::ArrayType:
        argument.beginArray();
        addArray(signature.at(1).toLatin1(), addAll);
        argument.endArray();
        break;
    case QDBusArgument::MapType:
        argument.beginMap();
        addArray('{', [&] {
            while (!argument.atEnd()) {
                pad(structureAlignment);
                argument.beginMapEntry();
                addAll();
                argument.endMapEntry();
            }
        });
        argument.endMap();
        break;
    default:
        addValue(argument.asVariant());
    }
}

} // namespace vel
