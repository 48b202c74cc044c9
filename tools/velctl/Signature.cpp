// D-Bus type signatures: taking them apart, and the names that people use for them.
#include "Signature.h"

#include <QDBusSignature>
#include <QStringList>

namespace velctl {

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

// The end of the complete type that begins at `at`, in a signature that is known to be valid.
int endOfType(const QByteArray& signature, int at) {
    while (signature.at(at) == 'a')
        ++at;
    int depth = 0;
    do {
        const char code = signature.at(at++);
        if (code == '(' || code == '{')
            ++depth;
        else if (code == ')' || code == '}')
            --depth;
    } while (depth > 0);
    return at;
}

} // namespace

QList<QByteArray> completeTypes(const QByteArray& signature) {
    QList<QByteArray> result;
    for (int at = 0; at < signature.size();) {
        const int end = endOfType(signature, at);
        result += signature.mid(at, end - at);
        at = end;
    }
    return result;
}

bool isCompleteType(const QByteArray& signature) {
    if (signature.isEmpty())
        return false;
    // Qt empties one that is not valid. It would also write a warning, which the message handler drops.
    const QDBusSignature checked(QString::fromLatin1(signature));
    return checked.signature().toLatin1() == signature && completeTypes(signature).size() == 1;
}

QByteArray elementType(const QByteArray& array) {
    return array.mid(1);
}

QList<QByteArray> memberTypes(const QByteArray& structure) {
    return completeTypes(structure.mid(1, structure.size() - 2));
}

QString typeName(const QByteArray& signature) {
    for (const TypeRow& row : types) {
        if (signature == row.signature)
            return row.name;
    }
    return QString::fromLatin1(signature);
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

QString qtTypeName(const QByteArray& signature) {
    for (const TypeRow& row : types) {
        if (signature == row.signature)
            return row.qtName;
    }
    return "QDBusArgument";
}

} // namespace velctl
