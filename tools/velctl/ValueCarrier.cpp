// Sending values of any type through Qt D-Bus.
//
// Qt writes a container by the C++ types of what is in it: each type has one signature, found out once and
// kept for the life of the process. A value whose signature is known only at run time has no such type. So a
// number of carrier types are prepared, all alike; a carrier is bound to a signature when that signature is
// first needed, and writes values of that signature from then on. Types that Qt itself knows need none; for
// lists of texts and byte arrays it allows none.
//
// What must always hold: nothing impossible reaches libdbus, which aborts the process. So a value is walked
// first, by mustBeSendable(), and every value here has the type that its signature says. Nor may anything be
// thrown once Qt is writing: by then every carrier that is needed has been bound.
#include "Value.h"

#include "Signature.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QMap>
#include <QStringList>

#include <array>
#include <utility>

namespace velctl {

namespace {

// Far more container types than the events of a system have together.
constexpr int carrierCount = 128;

// The bus ends the connection of whoever nests deeper, all containers counted together; dbus-daemon allows one more.
constexpr int deepestNesting = 63;

std::array<QByteArray, carrierCount> boundSignatures;

template <int Index>
struct Carrier {
    Value value;
};

void write(QDBusArgument& argument, const Value& value);

// Qt asks an empty carrier once, to learn its signature; contents do not matter then, members do.
Value exampleOf(const QByteArray& type) {
    Value example{type, {}, {}};
    if (type == "v")
        example.children.push_back(intValue(0));
    if (type.startsWith('(')) {
        for (const QByteArray& member : memberTypes(type))
            example.children.push_back(exampleOf(member));
    }
    return example;
}

template <int Index>
QDBusArgument& operator<<(QDBusArgument& argument, const Carrier<Index>& carrier) {
    write(argument, carrier.value.type.isEmpty() ? exampleOf(boundSignatures[Index]) : carrier.value);
    return argument;
}

// Never called: what arrives is read by the message's own description.
template <int Index>
const QDBusArgument& operator>>(const QDBusArgument& argument, Carrier<Index>&) {
    return argument;
}

struct CarrierFunctions {
    int (*bind)();
    QVariant (*load)(const Value&);
};

template <int Index>
int bindCarrier();
template <int Index>
QVariant loadCarrier(const Value& value);

template <int... Indices>
constexpr std::array<CarrierFunctions, sizeof...(Indices)> carrierTable(std::integer_sequence<int, Indices...>) {
    return {{{bindCarrier<Indices>, loadCarrier<Indices>}...}};
}

const auto& carriers() {
    static const auto table = carrierTable(std::make_integer_sequence<int, carrierCount>());
    return table;
}

int metaTypeFor(const QByteArray& type);

// What a container's type is made of is bound before the type itself.
QList<QByteArray> componentsOf(const QByteArray& type) {
    if (isDictionary(type))
        return memberTypes(elementType(type));
    return isArray(type) ? QList<QByteArray>{elementType(type)} : memberTypes(type);
}

const CarrierFunctions& carrierFor(const QByteArray& type) {
    static QMap<QByteArray, int> bound;
    if (const auto known = bound.constFind(type); known != bound.constEnd())
        return carriers()[static_cast<std::size_t>(*known)];
    for (const QByteArray& component : componentsOf(type))
        metaTypeFor(component);
    const int index = bound.size();
    if (index == carrierCount)
        throw QString("more than %1 different container types in one run").arg(carrierCount);
    boundSignatures[static_cast<std::size_t>(index)] = type;
    bound.insert(type, index);
    return carriers()[static_cast<std::size_t>(index)];
}

// The C++ type whose signature this is, for Qt to describe an array's or dictionary's elements by.
int metaTypeFor(const QByteArray& type) {
    static const QMap<QByteArray, int> knownToQt = {
        {"b", QMetaType::Bool},
        {"y", QMetaType::UChar},
        {"n", QMetaType::Short},
        {"q", QMetaType::UShort},
        {"i", QMetaType::Int},
        {"u", QMetaType::UInt},
        {"x", QMetaType::LongLong},
        {"t", QMetaType::ULongLong},
        {"d", QMetaType::Double},
        {"s", QMetaType::QString},
        {"as", QMetaType::QStringList},
        {"ay", QMetaType::QByteArray},
        {"o", qMetaTypeId<QDBusObjectPath>()},
        {"g", qMetaTypeId<QDBusSignature>()},
        {"v", qMetaTypeId<QDBusVariant>()},
    };
    const auto known = knownToQt.constFind(type);
    return known != knownToQt.constEnd() ? *known : carrierFor(type).bind();
}

void writeBasic(QDBusArgument& argument, const Value& value) {
    switch (value.type.at(0)) {
    case 'b':
        argument << value.basic.toBool();
        break;
    case 'y':
        argument << value.basic.value<uchar>();
        break;
    case 'n':
        argument << value.basic.value<short>();
        break;
    case 'q':
        argument << value.basic.value<ushort>();
        break;
    case 'i':
        argument << value.basic.toInt();
        break;
    case 'u':
        argument << value.basic.toUInt();
        break;
    case 'x':
        argument << value.basic.toLongLong();
        break;
    case 't':
        argument << value.basic.toULongLong();
        break;
    case 'd':
        argument << value.basic.toDouble();
        break;
    case 's':
        argument << value.basic.toString();
        break;
    case 'o':
        argument << value.basic.value<QDBusObjectPath>();
        break;
    case 'g':
        argument << value.basic.value<QDBusSignature>();
        break;
    }
}

void writeArray(QDBusArgument& argument, const Value& value) {
    if (value.type == "ay") {
        argument << value.basic.toByteArray();
    } else if (isDictionary(value.type)) {
        const QList<QByteArray> types = memberTypes(elementType(value.type));
        argument.beginMap(metaTypeFor(types.at(0)), metaTypeFor(types.at(1)));
        for (const Value& entry : value.children) {
            argument.beginMapEntry();
            write(argument, entry.children.at(0));
            write(argument, entry.children.at(1));
            argument.endMapEntry();
        }
        argument.endMap();
    } else {
        argument.beginArray(metaTypeFor(elementType(value.type)));
        for (const Value& element : value.children)
            write(argument, element);
        argument.endArray();
    }
}

QStringList textsIn(const Value& value) {
    QStringList texts;
    for (const Value& element : value.children)
        texts += element.basic.toString();
    return texts;
}

QVariant loaded(const Value& value) {
    if (isBasic(value.type) || value.type == "ay")
        return value.basic;
    if (value.type == "as")
        return textsIn(value);
    if (value.type == "v")
        return QVariant::fromValue(QDBusVariant(loaded(value.children.at(0))));
    return carrierFor(value.type).load(value);
}

void write(QDBusArgument& argument, const Value& value) {
    if (isArray(value.type)) {
        writeArray(argument, value);
    } else if (value.type.startsWith('(')) {
        argument.beginStructure();
        for (const Value& member : value.children)
            write(argument, member);
        argument.endStructure();
    } else if (value.type == "v") {
        argument << QDBusVariant(loaded(value.children.at(0)));
    } else {
        writeBasic(argument, value);
    }
}

void mustBeSendable(const Value& value, int depth) {
    if (depth > deepestNesting)
        throw QString("it is nested deeper than %1 levels").arg(deepestNesting);
    if (value.type.contains('h'))
        throw QString("a file descriptor cannot be sent on");
    if (value.type == "o" && value.basic.value<QDBusObjectPath>().path().isEmpty())
        throw QString("an object path must not be empty");
    if (value.type == "g" && value.basic.value<QDBusSignature>().signature().isEmpty())
        throw QString("an empty signature cannot be sent");
    if (!value.type.startsWith('{'))
        metaTypeFor(value.type);
    for (const Value& child : value.children)
        mustBeSendable(child, depth + 1);
}

} // namespace

QVariant toSend(const Value& value) {
    mustBeSendable(value, 0);
    return loaded(value);
}

} // namespace velctl

template <int Index>
struct QMetaTypeId<velctl::Carrier<Index>> {
    enum { Defined = 1 };
    static int qt_metatype_id() {
        static const int id =
            qRegisterMetaType<velctl::Carrier<Index>>(("velctl::Carrier" + QByteArray::number(Index)).constData(),
                                                      reinterpret_cast<velctl::Carrier<Index>*>(quintptr(-1)));
        return id;
    }
};

namespace velctl {

namespace {

template <int Index>
int bindCarrier() {
    return qDBusRegisterMetaType<Carrier<Index>>();
}

template <int Index>
QVariant loadCarrier(const Value& value) {
    return QVariant::fromValue(Carrier<Index>{value});
}

} // namespace

} // namespace velctl
