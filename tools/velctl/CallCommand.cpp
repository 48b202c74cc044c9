// velctl call: a method of a module's common interface.
#include "Bus.h"
#include "Commands.h"
#include "Failure.h"
#include "Introspection.h"
#include "ModuleNames.h"
#include "ModuleReport.h"
#include "Signature.h"
#include "Suggestion.h"
#include "Table.h"
#include "ValueJson.h"
#include "ValueText.h"

#include <QJsonArray>

#include <algorithm>

namespace velctl {

namespace {

QList<Method> commonMethods(const QString& introspection) {
    QList<Method> methods = methodsIn(introspection);
    methods.erase(std::remove_if(methods.begin(), methods.end(),
                                 [](const Method& method) { return method.interface != commonInterface(); }),
                  methods.end());
    return methods;
}

QString signaturesOf(const QList<Method>& methods) {
    QStringList texts;
    for (const Method& method : methods)
        texts += method.text();
    return texts.join(" or ");
}

QVariantList converted(const Method& method, const QStringList& arguments) {
    QVariantList values;
    for (int index = 0; index < arguments.size(); ++index)
        values += toSend(byType(method.in.at(index).type, arguments.at(index)));
    return values;
}

// Of methods that share a name, the first whose types the arguments fit.
QVariantList argumentsFor(const QList<Method>& namesakes, const QStringList& arguments, const QString& object) {
    QString reason = QString("it takes another number of arguments than %1").arg(arguments.size());
    for (const Method& method : namesakes) {
        if (method.in.size() != arguments.size())
            continue;
        try {
            return converted(method, arguments);
        } catch (const QString& why) {
            reason = why;
        }
    }
    throw Failure{Usage, QString("cannot call '%1': %2; right is: %3").arg(object, reason, signaturesOf(namesakes))};
}

[[noreturn]] void failWith(const QDBusMessage& answer, const ModuleReport& report, const QString& object,
                           const QString& limit) {
    if (!answer.service().isEmpty() && !Bus::isFromBusDaemon(answer))
        throw Failure{AnsweredError, QString("cannot call '%1': %2 answered %3: %4")
                                         .arg(object, report.module, answer.errorName(), answer.errorMessage())};
    if (!answer.service().isEmpty()) // the bus daemon says that nobody is left to answer
        throw Failure{NotRunning,
                      QString("cannot call '%1': %2 left the bus without an answer").arg(object, report.module)};
    throw Failure{TimeLimitReached,
                  QString("cannot call '%1': %2; no answer within %3").arg(object, whySilent(report), limit)};
}

// Several texts are most often lines of a table or of a log.
void printForPeople(const Value& value) {
    const QString type = paint(Colour::Grey, typeName(value.type));
    if (value.type != "as" || value.children.size() < 2)
        return printLine(type + ' ' + plainText(value));
    printLine(type);
    for (const Value& text : value.children)
        printLine("  " + plainText(text));
}

void print(const Request& request, const QVariantList& answered) {
    QJsonArray values;
    for (const QVariant& received : answered) {
        const Value value = valueOf(received);
        values.append(toTypedJson(value));
        if (!request.json)
            printForPeople(value);
    }
    if (request.json)
        printLine(
            QJsonObject{{"module", request.arguments.at(0)}, {"method", request.arguments.at(1)}, {"answer", values}});
}

} // namespace

int runCall(const Request& request) {
    const QString module = request.arguments.at(0);
    const QString name = request.arguments.at(1);
    const QString object = module + '.' + name;
    Bus bus(request.limit);
    const ModuleReport report = requireModule(bus, "call", object, module, request.limit.forOneCall());
    if (report.state == ModuleState::Unresponsive)
        throw Failure{TimeLimitReached, QString("cannot call '%1': %2; gave up after %3, nothing was sent")
                                            .arg(object, whySilent(report), request.limit.text())};
    QStringList names;
    QList<Method> namesakes;
    for (const Method& method : commonMethods(report.introspection)) {
        names += method.name;
        if (method.name == name)
            namesakes += method;
    }
    if (namesakes.isEmpty())
        throw Failure{
            Unknown,
            QString("cannot call '%1': %2 has no such method; %3").arg(object, module, suggestion(name, names))};

    QDBusMessage call = Bus::callTo(module, commonInterface(), name);
    call.setArguments(argumentsFor(namesakes, request.arguments.mid(2), object));
    const QDBusMessage answer = bus.connection().call(call, QDBus::Block, request.limit.forOneCall());
    if (answer.type() != QDBusMessage::ReplyMessage)
        failWith(answer, report, object, request.limit.text());
    print(request, answer.arguments());
    return Ok;
}

} // namespace velctl
