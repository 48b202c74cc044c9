// Fields by Qt's property access, which for a struct is one switch: no QObject, no event, no lock.
#include "typed/Record.h"

#include "platform/QtMetaTypes.h"
#include "typed/Form.h"
#include "typed/Values.h"

#include <QMetaProperty>
#include <QMutex>

#include <algorithm>
#include <map>
#include <memory>

namespace vel::typed {

namespace {

void access(const Record::Field& field, QMetaObject::Call call, const void* gadget, void* value) {
    int status = -1;
    int flags = 0;
    void* arguments[] = {value, nullptr, &status, &flags};
    field.owner->d.static_metacall(static_cast<QObject*>(const_cast<void*>(gadget)), call, field.index, arguments);
}

void writeField(const Record::Field& field, void* gadget, const void* value) {
    access(field, QMetaObject::WriteProperty, gadget, const_cast<void*>(value));
}

// Where in the text the name is that a scope may be missing from: "Mode" in "QVector<Mode>".
qsizetype startOfInnermost(const QByteArray& typeName) {
    return std::max<qsizetype>(typeName.lastIndexOf('<'), typeName.lastIndexOf(',')) + 1;
}

// Qt keeps the type's name as it stands in Q_PROPERTY, and looks it up in the global namespace. It completes only the names
// of the struct's own enumerations.
int typeOfProperty(const QMetaProperty& property) {
    int id = property.userType();
    if (property.isEnumType() && id == QMetaType::Int)
        return QMetaType::UnknownType; // Qt's answer when nobody has registered it
    const QByteArray name = property.typeName();
    QByteArray scope = property.enclosingMetaObject()->className();
    while (id == QMetaType::UnknownType && !scope.isEmpty()) {
        id = metatypes::idOf(QByteArray(name).insert(int(startOfInnermost(name)), scope + "::"));
        scope.truncate(std::max<qsizetype>(scope.lastIndexOf("::"), 0));
    }
    return id;
}

// Flags are read and written as an int, and are not registered under the name that they have here.
std::shared_ptr<const Type> flagsOf(const QMetaProperty& property) {
    auto type = std::make_shared<Type>(QMetaType::Int, Type::Enumeration);
    type->keys = property.enumerator();
    return type;
}

// The types that are sent and received as they are.
bool isDirect(const Type& type) {
    return type.kind == Type::Plain || type.kind == Type::Number;
}

} // namespace

Record::Record(const QMetaObject& gadget) {
    typeOf(QMetaType::UnknownType); // the usual types must have their names before the fields' are looked up
    for (int index = 0; index < gadget.propertyCount(); ++index) {
        const QMetaProperty property = gadget.property(index);
        const QMetaObject* owner = property.enclosingMetaObject();
        if (property.isFlagType())
            m_flags.push_back(flagsOf(property));
        const Type& type = property.isFlagType() ? *m_flags.back() : typeOf(typeOfProperty(property));
        const QString name = QString::fromLatin1(property.name());
        m_fields.append({name, owner, index - owner->propertyOffset(), &type});
        if (type.kind == Type::Unknown && m_problem.isEmpty())
            m_problem =
                QStringLiteral("field '%1' of %2 has the type %3, which is not known here; name it in FieldTypes")
                    .arg(name, QString::fromLatin1(gadget.className()), QString::fromLatin1(property.typeName()));
        if (!property.isReadable() || !property.isWritable())
            m_problem = QStringLiteral("field '%1' of %2 cannot be read and written; declare it with MEMBER")
                            .arg(name, QString::fromLatin1(gadget.className()));
        // A struct inside must be whole too; one that contains itself is being looked at already.
        if (type.gadget && type.gadget != &gadget && m_problem.isEmpty())
            m_problem = recordOf(*type.gadget).problem();
    }
}

bool Record::write(const void* gadget, QVariantMap& arguments, Mismatch& mismatch) const {
    for (const Field& field : m_fields) {
        const Type& type = *field.type;
        Holder value(type);
        access(field, QMetaObject::ReadProperty, gadget, value.data());
        if (type.isSentAsItIs) {
            arguments.insert(field.name, value.variant());
            continue;
        }
        QVariant sent;
        if (!toBus(type, value.data(), sent, mismatch)) {
            mismatch.field = field.name + mismatch.field;
            return false;
        }
        if (sent.isValid())
            arguments.insert(field.name, sent);
    }
    return true;
}

bool Record::read(const QVariantMap& arguments, void* gadget, Mismatch& mismatch) const {
    for (const Field& field : m_fields) {
        const Type& type = *field.type;
        const auto received = arguments.constFind(field.name);
        if (received == arguments.cend()) {
            if (type.kind == Type::Optional)
                continue;
            mismatch = {field.name, QStringLiteral("missing"), type.name()};
            return false;
        }
        if (isDirect(type) && received->userType() == type.id) {
            writeField(field, gadget, received->constData());
            continue;
        }
        Holder value(type);
        if (!fromBus(type, *received, value.data(), mismatch)) {
            mismatch.field = field.name + mismatch.field;
            return false;
        }
        writeField(field, gadget, value.data());
    }
    return true;
}

const Record& recordOf(const QMetaObject& gadget) {
    // Recursive: a record asks for those of the structs inside it.
    static QRecursiveMutex mutex;
    static std::map<const QMetaObject*, std::unique_ptr<const Record>> records;
    const QMutexLocker lock(&mutex);
    std::unique_ptr<const Record>& known = records[&gadget];
    if (!known)
        known = std::make_unique<Record>(gadget);
    return *known;
}

Form::Form(const QMetaObject& gadget, Make maker) : m_record(&recordOf(gadget)), m_make(maker) {}

} // namespace vel::typed
