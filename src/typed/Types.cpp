// What there is to know of a type is asked of Qt's type system once, and kept.
#include "typed/Types.h"

#include "events/VelDBusTypes.h"
#include "typed/Numbers.h"

#include <QDBusMetaType>
#include <QMutex>

#include <map>
#include <memory>
#include <vector>

using QtMetaTypePrivate::QSequentialIterableImpl;

namespace vel::typed {

namespace {

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

} // namespace

QString Type::name() const {
    if (keys.isValid())
        return QStringLiteral("%1::%2").arg(QLatin1String(keys.scope()), QLatin1String(keys.name()));
    const char* name = QMetaType::typeName(id);
    return name ? QString::fromLatin1(name) : QStringLiteral("an unknown type");
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

} // namespace vel::typed
