// What a module says of its methods.
#include "Introspection.h"

#include "wire/Types.h"

#include <QStringList>
#include <QXmlStreamReader>

namespace velctl {

namespace {

QString attribute(const QXmlStreamReader& xml, const char* name) {
    return xml.attributes().value(QLatin1String(name)).toString();
}

// "org.qtproject.QtDBus.QtTypeName.In0" names the type of the first in argument.
void takeAnnotation(Method& method, const QString& name, const QString& value) {
    for (QList<MethodArgument>* arguments : {&method.in, &method.out}) {
        const QString prefix = QStringLiteral(".QtTypeName.") + (arguments == &method.in ? "In" : "Out");
        const int at = name.indexOf(prefix);
        bool isNumber = false;
        const int index = name.mid(at + prefix.size()).toInt(&isNumber);
        if (at >= 0 && isNumber && index >= 0 && index < arguments->size())
            (*arguments)[index].qtType = value;
    }
}

Method readMethod(QXmlStreamReader& xml, const QString& interface) {
    Method method{interface, attribute(xml, "name"), {}, {}};
    QList<QPair<QString, QString>> annotations;
    while (xml.readNextStartElement()) {
        if (xml.name() == QLatin1String("arg")) {
            const bool isOut = attribute(xml, "direction") == "out";
            (isOut ? method.out : method.in)
                .append({attribute(xml, "name"), attribute(xml, "type").toLatin1(), QString()});
        } else if (xml.name() == QLatin1String("annotation")) {
            annotations.append({attribute(xml, "name"), attribute(xml, "value")});
        }
        xml.skipCurrentElement();
    }
    for (const auto& [name, value] : annotations)
        takeAnnotation(method, name, value);
    return method;
}

QString argumentText(const MethodArgument& argument) {
    QString type = wire::typeName(argument.type);
    if (type == QString::fromLatin1(argument.type) && !argument.qtType.isEmpty())
        type += " (" + argument.qtType + ')';
    return argument.name.isEmpty() ? type : type + ' ' + argument.name;
}

QString listText(const QList<MethodArgument>& arguments) {
    QStringList texts;
    for (const MethodArgument& argument : arguments)
        texts += argumentText(argument);
    return texts.join(", ");
}

} // namespace

QByteArray Method::impossibleType() const {
    for (const MethodArgument& argument : in) {
        if (!wire::isCompleteType(argument.type))
            return argument.type;
    }
    return QByteArray();
}

QString Method::text() const {
    return QString("%1(%2)").arg(name, listText(in)) + (out.isEmpty() ? QString() : " -> " + listText(out));
}

QList<Method> methodsIn(const QString& introspection) {
    QList<Method> methods;
    QXmlStreamReader xml(introspection);
    xml.readNextStartElement(); // the object itself; nodes below it are other objects
    while (xml.readNextStartElement()) {
        const QString interface = attribute(xml, "name");
        if (xml.name() != QLatin1String("interface") || interface.startsWith("org.freedesktop.DBus.")) {
            xml.skipCurrentElement();
            continue;
        }
        while (xml.readNextStartElement()) {
            if (xml.name() == QLatin1String("method"))
                methods += readMethod(xml, interface);
            else
                xml.skipCurrentElement();
        }
    }
    return methods;
}

} // namespace velctl
