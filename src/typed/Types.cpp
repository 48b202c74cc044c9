// What there is to know of a type is asked of Qt's type system once, and kept.
#include "typed/Types.h"

#include "events/VelDBusTypes.h"
#include "platform/QtMetaTypes.h"
#include "typed/ListAccess.h"
#include "typed/Numbers.h"

#include <QMutex>

#include <map>
#include <memory>
#include <vector>

namespace vel::typed {

namespace {

QMetaEnum enumerationOf(int type) {
    const QMetaObject* scope = QMetaType(type).metaObject();
    const QByteArray name = QMetaType(type).name();
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
    if (type != QMetaType::UnknownType && metatypes::signatureOf(type))
        return Type::Plain;
    return known.element ? Type::ListOf : Type::Unknown;
}

Type makeType(int id) {
    Type type(id);
    const auto flags = QMetaType(id).flags();
    if (flags & QMetaType::IsEnumeration)
        type.keys = enumerationOf(id);
    if (flags & QMetaType::IsGadget)
        type.gadget = QMetaType(id).metaObject();
    type.element = elementOfList(id);
    type.kind = kindOf(id, type);
    type.isSentAsItIs = type.kind == Type::Plain || type.kind == Type::List || type.kind == Type::Map ||
                        (type.kind == Type::Number && metatypes::signatureOf(id));
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
        type.isSentAsItIs = metatypes::signatureOf(type.id);
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
    const QByteArray name = QMetaType(id).name();
    return name.isEmpty() ? QStringLiteral("an unknown type") : QString::fromLatin1(name);
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
