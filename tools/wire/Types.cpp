// D-Bus type signatures, and the names that people use for them.
#include "wire/Types.h"

#include <QStringList>

#include <dbus/dbus.h>

#include <memory>
#include <new>

namespace wire {

namespace {

struct TypeRow {
    const char* signature;
    const char* name;
    const char* qtName;
};

const TypeRow types[] = {
    {"b", "bool", "bool"},
    {"i", "int", "int"},
    {"d", "double", "double"},
    {"s", "text", "QString"},
    {"as", "texts", "QStringList"},
    {"av", "list", "QVariantList"},
    {"a{sv}", "map", "QVariantMap"},
    {"ay", "bytes", "QByteArray"},
    {"y", "byte", "uchar"},
    {"n", "short", "short"},
    {"q", "ushort", "ushort"},
    {"u", "uint", "uint"},
    {"x", "int64", "qlonglong"},
    {"t", "uint64", "qulonglong"},
    {"o", "path", "QDBusObjectPath"},
    {"g", "signature", "QDBusSignature"},
    {"v", "variant", "QDBusVariant"},
    {"a{ss}", "a{ss}", "QMap<QString,QString>"},
    {"ai", "ai", "QList<int>"},
};

const TypeRow* rowOf(const QByteArray& signature) {
    for (const TypeRow& row : types) {
        if (signature == row.signature)
            return &row;
    }
    return nullptr;
}

} // namespace

bool isCompleteType(const QByteArray& signature) {
    return !signature.contains('\0') && dbus_signature_validate_single(signature.constData(), nullptr);
}

QVector<QByteArray> typesIn(const QByteArray& container) {
    if (isArray(container))
        return {container.mid(1)};
    QVector<QByteArray> result;
    const QByteArray members = container.mid(1, container.size() - 2);
    DBusSignatureIter at;
    dbus_signature_iter_init(&at, members.constData());
    do {
        const std::unique_ptr<char, void (*)(void*)> type(dbus_signature_iter_get_signature(&at), dbus_free);
        if (!type)
            throw std::bad_alloc();
        result += QByteArray(type.get());
    } while (dbus_signature_iter_next(&at));
    return result;
}

QString typeName(const QByteArray& signature) {
    const TypeRow* row = rowOf(signature);
    return QString::fromLatin1(row ? QByteArray(row->name) : signature);
}

QByteArray typeByName(const QString& name) {
    for (const TypeRow& row : types) {
        if (name == QLatin1String(row.name))
            return row.signature;
    }
    const QByteArray signature = name.toLatin1();
    return isCompleteType(signature) ? signature : QByteArray();
}

QString knownTypeNames() {
    QStringList names;
    for (const TypeRow& row : types) {
        if (qstrcmp(row.signature, row.name) != 0)
            names += row.name;
    }
    return names.join(", ");
}

QByteArray qtTypeName(const QByteArray& signature) {
    const TypeRow* row = rowOf(signature);
    return row ? row->qtName : "QDBusArgument";
}

} // namespace wire
