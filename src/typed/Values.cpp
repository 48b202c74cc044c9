// Conversions of single values, by what Qt's type system knows of their types.
//
// To the bus: what Qt D-Bus has a form for is sent in that form, so that it is what a module that puts the value into the
// arguments by hand sends. Everything else becomes one of a few forms: a number, a text, a list (av) or a map (a{sv}).
//
// From the bus: a peer may be written in anything, and a person may type an event. So it is not the form that is asked for,
// but the value: a number is taken from any numeric type that holds it exactly, a list from any array. A number is never
// taken from a text, and true is no number: these are mistakes of the publisher.
#include "typed/Values.h"

#include "events/VelDBusTypes.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QMutex>
#include <QUrl>

#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <vector>

using QtMetaTypePrivate::QSequentialIterableImpl;

namespace vel::typed {

namespace {

// --- Which types there are -------------------------------------------------------------------------------------------

bool isNumber(int type) {
    switch (type) {
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Float:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

QMetaEnum enumerationOf(int type) {
    const QMetaObject* scope = QMetaType::metaObjectForType(type);
    const QByteArray name = QMetaType::typeName(type);
    return scope ? scope->enumerator(scope->indexOfEnumerator(name.mid(name.lastIndexOf(':') + 1))) : QMetaEnum();
}

Type::Kind kindOf(int type, const Type& known) {
    if (isNumber(type))
        return Type::Number;
    if (type == QMetaType::QVariant)
        return Type::Any;
    if (type == QMetaType::QVariantList)
        return Type::List;
    if (type == QMetaType::QVariantMap)
        return Type::Map;
    if (type == QMetaType::QUrl || type == QMetaType::QChar)
        return Type::Text;
    if (known.keys.isValid())
        return Type::Enumeration;
    if (known.gadget)
        return Type::Gadget;
    if (type != QMetaType::UnknownType && QDBusMetaType::typeToSignature(type))
        return Type::Plain;
    return known.element ? Type::ListOf : Type::Unknown;
}

// Of a list that Qt can look into and append to: QList, QVector, QSet, std::vector of a known type.
int elementOf(int type) {
    QVariant list(type, nullptr);
    QSequentialIterableImpl access;
    const int accessType = qMetaTypeId<QSequentialIterableImpl>();
    if (!list.isValid() || !QMetaType::hasRegisteredConverterFunction(type, accessType) ||
        !QMetaType::convert(list.constData(), type, &access, accessType) ||
        !(access.containerCapabilities() & QtMetaTypePrivate::ContainerIsAppendable))
        return QMetaType::UnknownType;
    return access._metaType_id;
}

Type makeType(int id) {
    Type type(id);
    const auto flags = QMetaType(id).flags();
    if (flags & QMetaType::IsEnumeration)
        type.keys = enumerationOf(id);
    if (flags & QMetaType::IsGadget)
        type.gadget = QMetaType::metaObjectForType(id);
    type.element = elementOf(id);
    type.kind = kindOf(id, type);
    type.isSentAsItIs = type.kind == Type::Plain || type.kind == Type::List || type.kind == Type::Map ||
                        (type.kind == Type::Number && QDBusMetaType::typeToSignature(id));
    return type;
}

class Types {
public:
    Types() {
        registerCoreDBusTypes();
        qDBusRegisterMetaType<QMapQStringQString>(); // now, so that its form does not depend on when a module asks
    }

    const Type& of(int id) {
        const QMutexLocker lock(&m_mutex);
        std::unique_ptr<const Type>& known = m_types[id];
        if (!known)
            known = std::make_unique<Type>(makeType(id));
        return *known;
    }

    void add(Type type) {
        const QMutexLocker lock(&m_mutex);
        std::unique_ptr<const Type>& known = m_types[type.id];
        if (known && known->kind != Type::Unknown)
            return; // may be in use
        if (known)
            m_replaced.push_back(std::move(known));
        type.isSentAsItIs = QDBusMetaType::typeToSignature(type.id);
        if (type.isSentAsItIs)
            type.kind = Type::Plain;
        known = std::make_unique<Type>(std::move(type));
    }

private:
    QMutex m_mutex;
    std::map<int, std::unique_ptr<const Type>> m_types;
    std::vector<std::unique_ptr<const Type>> m_replaced; // a record that cannot be used still points at them
};

using UsualTypes = FieldTypes<bool, uchar, short, ushort, int, uint, qlonglong, qulonglong, double, QString>;

Types& types() {
    static Types known;
    return known;
}

// --- What came -------------------------------------------------------------------------------------------------------

// As the value itself: a variant in a variant, and arrays and dictionaries that Qt has not read. libdbus has looked at every
// byte, and at the depth.
QVariant unwrapped(const QVariant& received);

QVariant unwrapped(const QDBusArgument& argument) {
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

QVariant unwrapped(const QVariant& received) {
    if (received.userType() == qMetaTypeId<QDBusVariant>())
        return unwrapped(received.value<QDBusVariant>().variant());
    if (received.userType() == qMetaTypeId<QDBusArgument>())
        return unwrapped(received.value<QDBusArgument>());
    return received;
}

// Texts come from strangers, and this goes into a log: on one line, short, and nothing that a terminal obeys.
QString shown(const QString& text) {
    constexpr int longest = 40;
    QString safe = text.left(longest);
    for (QChar& c : safe) {
        if (!c.isPrint() || c.isSurrogate())
            c = QLatin1Char('?');
    }
    return QLatin1Char('\'') + safe + QLatin1Char('\'') + (text.size() > longest ? QStringLiteral("...") : QString());
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
        return QStringLiteral("text ") + shown(value.toString());
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

bool isNo(const Type& type, const QVariant& received, Mismatch& mismatch) {
    mismatch = {QString(), described(received), type.name()};
    return false;
}

// --- Numbers ---------------------------------------------------------------------------------------------------------

// Beyond it a double does not hold every integer.
constexpr qint64 largestExactInteger = qint64(1) << std::numeric_limits<double>::digits;

template <typename Target, typename Source>
bool fits(Source source) {
    if constexpr (std::is_floating_point_v<Source> && std::is_floating_point_v<Target>) {
        return std::isnan(source) || Source(Target(source)) == source;
    } else if constexpr (std::is_floating_point_v<Source>) {
        // The lowest and the end of the range are powers of two, so a double holds them.
        const double end = std::ldexp(1.0, std::numeric_limits<Target>::digits);
        return source >= double(std::numeric_limits<Target>::min()) && source < end && std::trunc(source) == source;
    } else if constexpr (std::is_floating_point_v<Target>) {
        constexpr qint64 largest =
            sizeof(Target) == sizeof(double) ? largestExactInteger : qint64(1) << std::numeric_limits<float>::digits;
        if constexpr (std::is_signed_v<Source>)
            return source >= -largest && source <= largest;
        else
            return source <= quint64(largest);
    } else if constexpr (std::is_signed_v<Source> && std::is_unsigned_v<Target>) {
        return source >= 0 && quint64(source) <= std::numeric_limits<Target>::max();
    } else if constexpr (std::is_unsigned_v<Source> && std::is_signed_v<Target>) {
        return source <= quint64(std::numeric_limits<Target>::max());
    } else {
        return source >= std::numeric_limits<Target>::min() && source <= std::numeric_limits<Target>::max();
    }
}

template <typename Target, typename Source>
bool store(Source source, void* value) {
    if (!fits<Target>(source))
        return false;
    *static_cast<Target*>(value) = Target(source);
    return true;
}

template <typename Source>
bool storeAs(int type, Source source, void* value) {
    switch (type) {
    case QMetaType::Short:
        return store<short>(source, value);
    case QMetaType::UShort:
        return store<ushort>(source, value);
    case QMetaType::Int:
        return store<int>(source, value);
    case QMetaType::UInt:
        return store<uint>(source, value);
    case QMetaType::Long:
        return store<long>(source, value);
    case QMetaType::ULong:
        return store<ulong>(source, value);
    case QMetaType::LongLong:
        return store<qlonglong>(source, value);
    case QMetaType::ULongLong:
        return store<qulonglong>(source, value);
    case QMetaType::Char:
        return store<char>(source, value);
    case QMetaType::SChar:
        return store<signed char>(source, value);
    case QMetaType::UChar:
        return store<uchar>(source, value);
    case QMetaType::Float:
        return store<float>(source, value);
    default:
        return store<double>(source, value);
    }
}

bool storeNumber(int type, const QVariant& received, void* value) {
    switch (received.userType()) {
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
        return storeAs(type, received.toLongLong(), value);
    case QMetaType::ULongLong:
        return storeAs(type, received.toULongLong(), value);
    case QMetaType::Double:
        return storeAs(type, received.toDouble(), value);
    default:
        return false;
    }
}

QVariant numberToBus(int type, const void* value) {
    switch (type) {
    case QMetaType::Long:
        return qlonglong(*static_cast<const long*>(value));
    case QMetaType::ULong:
        return qulonglong(*static_cast<const ulong*>(value));
    case QMetaType::Char:
        return QVariant::fromValue(short(*static_cast<const char*>(value)));
    case QMetaType::SChar:
        return QVariant::fromValue(short(*static_cast<const signed char*>(value)));
    case QMetaType::Float:
        return double(*static_cast<const float*>(value));
    default:
        return QVariant(type, value);
    }
}

// --- Enumerations: by their keys, so that an event can be read, and a new key in the middle changes none of the others ----

// Whether its values have a sign is not known; its keys tell.
template <typename Signed>
int numberOf(const Type& type, const void* value) {
    const Signed number = *static_cast<const Signed*>(value);
    return type.keys.valueToKey(number) ? int(number) : int(std::make_unsigned_t<Signed>(number));
}

int numberOf(const Type& type, const void* value) {
    switch (QMetaType::sizeOf(type.id)) {
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
    switch (QMetaType::sizeOf(type.id)) {
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

// --- What is made of other values ------------------------------------------------------------------------------------

void putInFront(Mismatch& mismatch, const QString& place) {
    mismatch.field = place + mismatch.field;
}

bool listToBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch) {
    QSequentialIterableImpl access;
    QMetaType::convert(value, type.id, &access, qMetaTypeId<QSequentialIterableImpl>());
    const Type& element = typeOf(type.element);
    QVariantList list;
    access.moveToBegin();
    QSequentialIterableImpl end = access;
    end.moveToEnd();
    bool isWhole = true;
    for (; isWhole && !access.equal(end); access.advance(1)) {
        QVariant sentElement;
        isWhole = toBus(element, access.getCurrent().data, sentElement, mismatch);
        if (!isWhole)
            putInFront(mismatch, QStringLiteral("[%1]").arg(list.size()));
        list << sentElement;
    }
    access.destroyIter();
    end.destroyIter();
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
    QSequentialIterableImpl access;
    QMetaType::convert(value, type.id, &access, qMetaTypeId<QSequentialIterableImpl>());
    for (int index = 0; index < list.size(); ++index) {
        Holder made(element);
        if (!fromBus(element, list.at(index), made.data(), mismatch)) {
            putInFront(mismatch, QStringLiteral("[%1]").arg(index));
            return false;
        }
        access.append(made.data());
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
            putInFront(mismatch, QLatin1Char('[') + shown(key) + QLatin1Char(']'));
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
            putInFront(mismatch, QLatin1Char('[') + shown(entry.key()) + QLatin1Char(']'));
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
        QMetaType::destruct(type.id, value);
        QMetaType::construct(type.id, value, received.constData());
        return true;
    }
    if (received.userType() == qMetaTypeId<QDBusVariant>())
        return plainFromBus(type, received.value<QDBusVariant>().variant(), value, mismatch);
    // An array or a structure, which Qt has not read yet. Its reader trusts the form, so that is compared first.
    if (received.userType() == qMetaTypeId<QDBusArgument>()) {
        const QDBusArgument argument = received.value<QDBusArgument>();
        if (argument.currentSignature() == QLatin1String(QDBusMetaType::typeToSignature(type.id)))
            return QDBusMetaType::demarshall(argument, type.id, value);
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

QString Type::name() const {
    if (keys.isValid())
        return QStringLiteral("%1::%2").arg(QLatin1String(keys.scope()), QLatin1String(keys.name()));
    const char* name = QMetaType::typeName(id);
    return name ? QString::fromLatin1(name) : QStringLiteral("an unknown type");
}

QString Mismatch::text() const {
    return QStringLiteral("%1 is %2, wanted %3")
        .arg(field.isEmpty() ? QStringLiteral("it") : QStringLiteral("field '%1'").arg(field), came, wanted);
}

void registerMap(int type, const MapAccess& access) {
    Type made(type, Type::MapOf);
    made.element = access.valueType;
    made.map = access;
    types().add(made);
}

void registerOptional(int type, const OptionalAccess& access) {
    Type made(type, Type::Optional);
    made.element = access.valueType;
    made.optional = access;
    types().add(made);
}

const Type& typeOf(int id) {
    static const bool usualTypesAreKnown = (registerAll(UsualTypes()), true);
    Q_UNUSED(usualTypesAreKnown)
    return types().of(id);
}

bool toBus(const Type& type, const void* value, QVariant& sent, Mismatch& mismatch) {
    if (type.isSentAsItIs) {
        sent = QVariant(type.id, value);
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
