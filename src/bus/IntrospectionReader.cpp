// Reading introspection XML: the methods of the common interface, and descriptors of the Qt types that they return.
#include "bus/IntrospectionReader.h"

#include "bus/BusNames.h"

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
    // One after the other, as every module of a system does it: a "%2" in a name is filled by what follows.
    return QStringLiteral("%1:%2:%3").arg(typeName).arg(container).arg(keyType);
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

// Reads a description from its first byte to its last: half of one must not be believed. Where an element stands is told
// by its depth alone: a node, its interfaces, their methods, and what describes a method.
class Description {
public:
    explicit Description(const QString& text) : m_reader(text) { m_reader.setNamespaceProcessing(false); }

    /// Whether it is well-formed, and not nested far deeper than a description is.
    bool read() {
        constexpr int deepestElement = 100;
        while (!m_reader.atEnd() && m_depth <= deepestElement) {
            const QXmlStreamReader::TokenType token = m_reader.readNext();
            if (token == QXmlStreamReader::StartElement)
                begin(++m_depth);
            else if (token == QXmlStreamReader::EndElement)
                end(m_depth--);
        }
        return !m_reader.hasError() && m_depth <= deepestElement;
    }

    const QList<vel::bus::ReturnType>& types() const { return m_types; }

private:
    enum Depth { Node = 1, Interface, Method, Detail };

    bool is(const char* tag) const { return m_reader.qualifiedName() == QLatin1String(tag); }
    QString attribute(const char* name) const { return m_reader.attributes().value(QLatin1String(name)).toString(); }

    void begin(int depth) {
        if (depth == Interface) {
            m_isCommon = is("interface") && attribute("name") == vel::bus::commonInterface();
        } else if (depth == Method) {
            m_isMethod = m_isCommon && is("method");
            m_method = attribute("name");
            m_out = OutArgument();
        } else if (depth == Detail && m_isMethod) {
            readDetail();
        }
    }

    // The last "out" argument and the last "...Out0" annotation win.
    void readDetail() {
        if (is("arg") && attribute("direction") == QLatin1String("out"))
            m_out.signature = attribute("type");
        if (is("annotation") && attribute("name").endsWith(QLatin1String("Out0")))
            m_out.annotation = attribute("value");
    }

    void end(int depth) {
        if (depth == Method && m_isMethod)
            m_types.append({m_method, m_out.signature, descriptorOf(m_out)});
    }

    QXmlStreamReader m_reader;
    int m_depth = 0;
    bool m_isCommon = false;
    bool m_isMethod = false;
    QString m_method;
    OutArgument m_out;
    QList<vel::bus::ReturnType> m_types;
};

} // namespace

QList<vel::bus::ReturnType> vel::bus::returnTypesIn(const QString& introspection) {
    Description description(introspection);
    return description.read() ? description.types() : QList<ReturnType>();
}
