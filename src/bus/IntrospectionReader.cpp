// Reading introspection XML: the methods of the common interface, and descriptors of the Qt types that they return.
#include "bus/IntrospectionReader.h"

#include "bus/BusNames.h"

#include <QDomDocument>
#include <QXmlStreamReader>

namespace {

// What an introspected method says about its out argument.
struct OutArgument {
    QString signature;
    QString annotation;
};

struct BasicType {
    QLatin1String signature;
    QLatin1String typeName;
};

const BasicType basicTypes[] = {
    {QLatin1String("s"), QLatin1String("QString")}, {QLatin1String("i"), QLatin1String("int")},
    {QLatin1String("b"), QLatin1String("bool")},    {QLatin1String("u"), QLatin1String("uint")},
    {QLatin1String("x"), QLatin1String("long")},    {QLatin1String("d"), QLatin1String("double")},
    {QLatin1String("y"), QLatin1String("uchar")},   {QLatin1String("n"), QLatin1String("short")},
    {QLatin1String("q"), QLatin1String("ushort")},  {QLatin1String("t"), QLatin1String("ulong")},
};

QString typeNameOf(const QString& signature) {
    for (const BasicType& type : basicTypes) {
        if (signature == type.signature)
            return type.typeName;
    }
    return QString();
}

QString descriptor(const QString& typeName, const QString& container, const QString& keyType) {
    return QStringLiteral("%1:%2:%3").arg(typeName, container, keyType); // at once: a name may hold a "%2"
}

// The annotation tells the Qt type; without one the D-Bus signature does, for the basic types.
QString descriptorOf(const OutArgument& out) {
    const QString& annotation = out.annotation;
    const QString list = QStringLiteral("list");
    const QString map = QStringLiteral("map");
    const QString mapKey = QStringLiteral("QString");
    if (annotation.startsWith(QLatin1String("List")))
        return descriptor(annotation.mid(4), list, QString());
    if (annotation.startsWith(QLatin1String("QList<")))
        return descriptor(annotation.mid(6, annotation.size() - 7), list, QString());
    if (annotation.startsWith(QLatin1String("QVariantMap")))
        return descriptor(QStringLiteral("QVariant"), map, mapKey);
    if (annotation.startsWith(QLatin1String("MapQString")))
        return descriptor(annotation.mid(10), map, mapKey);
    if (!annotation.isEmpty())
        return descriptor(annotation, QString(), QString());
    return descriptor(typeNameOf(out.signature), QString(), QString());
}

// The last "out" argument and the last "...Out0" annotation win.
OutArgument outArgumentOf(const QDomElement& method) {
    OutArgument out;
    for (QDomElement child = method.firstChildElement(); !child.isNull(); child = child.nextSiblingElement()) {
        if (child.tagName() == QLatin1String("arg") &&
            child.attribute(QStringLiteral("direction")) == QLatin1String("out"))
            out.signature = child.attribute(QStringLiteral("type"));
        if (child.tagName() == QLatin1String("annotation") &&
            child.attribute(QStringLiteral("name")).endsWith(QLatin1String("Out0")))
            out.annotation = child.attribute(QStringLiteral("value"));
    }
    return out;
}

// A QDomDocument is taken down by recursion, so that a text which only opens elements ends the process. A description
// nests four deep.
bool isShallow(const QString& text) {
    constexpr int deepestElement = 100;
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(false);
    int depth = 0;
    while (!reader.atEnd() && depth <= deepestElement) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        depth += (token == QXmlStreamReader::StartElement) - (token == QXmlStreamReader::EndElement);
    }
    return !reader.hasError() && depth <= deepestElement;
}

} // namespace

QList<vel::bus::ReturnType> vel::bus::returnTypesIn(const QString& introspection) {
    QList<ReturnType> types;
    QDomDocument document;
    // setContent() keeps the half it could read when it fails; half a description must not be believed.
    if (!isShallow(introspection) || !document.setContent(introspection, false))
        return types;
    const QString interfaceTag = QStringLiteral("interface");
    const QString methodTag = QStringLiteral("method");
    const QString nameAttribute = QStringLiteral("name");
    for (QDomElement interface = document.documentElement().firstChildElement(interfaceTag); !interface.isNull();
         interface = interface.nextSiblingElement(interfaceTag)) {
        if (interface.attribute(nameAttribute) != commonInterface())
            continue;
        for (QDomElement method = interface.firstChildElement(methodTag); !method.isNull();
             method = method.nextSiblingElement(methodTag)) {
            const OutArgument out = outArgumentOf(method);
            types.append({method.attribute(nameAttribute), out.signature, descriptorOf(out)});
        }
    }
    return types;
}
