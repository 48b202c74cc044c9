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

// Reads a description from its first byte to its last: half of one must not be believed. A node has interfaces, these have
// methods, and a method has what describes it; whatever else there is is skipped.
class Description {
public:
    explicit Description(const QString& text) : m_reader(text) { m_reader.setNamespaceProcessing(false); }

    /// Whether it is well-formed, and not nested far deeper than a description is.
    bool read() {
        if (m_reader.readNextStartElement())
            readNode();
        while (!m_reader.atEnd()) // what follows the node must be well-formed, too
            m_reader.readNext();
        return !m_reader.hasError();
    }

    const QList<vel::bus::ReturnType>& types() const { return m_types; }

private:
    bool is(const char* tag) const { return m_reader.qualifiedName() == QLatin1String(tag); }
    QString attribute(const char* name) const { return m_reader.attributes().value(QLatin1String(name)).toString(); }

    void readNode() {
        while (m_reader.readNextStartElement()) {
            if (is("interface") && attribute("name") == vel::bus::commonInterface())
                readInterface();
            else
                skip();
        }
    }

    void readInterface() {
        while (m_reader.readNextStartElement()) {
            if (is("method"))
                readMethod();
            else
                skip();
        }
    }

    // The last "out" argument and the last "...Out0" annotation win.
    void readMethod() {
        const QString method = attribute("name");
        OutArgument out;
        while (m_reader.readNextStartElement()) {
            if (is("arg") && attribute("direction") == QLatin1String("out"))
                out.signature = attribute("type");
            if (is("annotation") && attribute("name").endsWith(QLatin1String("Out0")))
                out.annotation = attribute("value");
            skip();
        }
        if (!m_reader.hasError())
            m_types.append({method, out.signature, descriptorOf(out)});
    }

    // Qt's own skipCurrentElement() follows any nesting.
    void skip() {
        constexpr int deepest = 100;
        for (int open = 1; open > 0 && !m_reader.hasError();) {
            m_reader.readNext();
            open += int(m_reader.isStartElement()) - int(m_reader.isEndElement());
            if (open > deepest)
                m_reader.raiseError(QStringLiteral("nested too deep"));
        }
    }

    QXmlStreamReader m_reader;
    QList<vel::bus::ReturnType> m_types;
};

} // namespace

QList<vel::bus::ReturnType> vel::bus::returnTypesIn(const QString& introspection) {
    Description description(introspection);
    return description.read() ? description.types() : QList<ReturnType>();
}
