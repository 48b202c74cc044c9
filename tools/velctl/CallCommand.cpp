// velctl call: a method of a module's common interface.
#include "Bus.h"
#include "Commands.h"
#include "Introspection.h"
#include "ModuleNames.h"
#include "ModuleReport.h"
#include "Output.h"

#include "wire/Json.h"
#include "wire/Printable.h"
#include "wire/Text.h"

#include <algorithm>

namespace velctl {

namespace {

QString signaturesOf(const QList<Method>& methods) {
    QStringList texts;
    for (const Method& method : methods)
        texts += method.text();
    return texts.join(" or ");
}

QList<Method> methodsCalled(const QString& name, const ModuleReport& report, const QString& object) {
    QStringList names;
    QList<Method> namesakes;
    for (const Method& method : methodsIn(report.introspection)) {
        if (method.interface != commonInterface() || !vel::bus::isValidMemberName(method.name))
            continue;
        names += method.name;
        if (method.name == name)
            namesakes += method;
    }
    names.removeDuplicates();
    if (namesakes.isEmpty())
        throw Failure{
            Unknown,
            QString("cannot call '%1': %2 has no such method; %3").arg(object, report.module, knownNames(names))};
    for (const Method& method : qAsConst(namesakes)) {
        if (const QByteArray type = method.impossibleType(); !type.isNull())
            throw Failure{Failed, QString("cannot call '%1': %2 describes it with '%3', which is no type; nothing was "
                                          "sent")
                                      .arg(object, report.module, QString::fromUtf8(type))};
    }
    return namesakes;
}

// Of methods that share a name, the first whose types the arguments fit.
wire::Message callFor(const Request& request, const ModuleReport& report, const QString& object) {
    const QString name = request.arguments.at(1);
    const QStringList arguments = request.arguments.mid(2);
    const QList<Method> namesakes = methodsCalled(name, report, object);
    QString reason = QString("it takes another number of arguments than %1").arg(arguments.size());
    for (const Method& method : namesakes) {
        if (method.in.size() != arguments.size())
            continue;
        try {
            wire::Message call = callTo(report.uniqueName, pathOf(report.module), commonInterface(), name);
            wire::Appender to(call.get());
            for (int index = 0; index < arguments.size(); ++index)
                wire::appendByType(to, method.in.at(index).type, arguments.at(index));
            return call;
        } catch (const wire::Error& why) {
            reason = why.reason;
        }
    }
    throw Failure{Usage, QString("cannot call '%1': %2; right is: %3").arg(object, reason, signaturesOf(namesakes))};
}

void printLineOf(const QString& before, const Cell& type, DBusMessageIter& value, const TimeLimit& limit) {
    printPart({{before}, type});
    if (!type.text.isEmpty())
        Output::writePiece(" ", limit);
    wire::writeText(&value, [&](const QByteArray& piece) { Output::writePiece(wire::printable(piece), limit); });
    Output::writePiece("\n", limit);
}

// Several texts are most often lines of a table or of a log.
void printForPeople(DBusMessageIter& value, const TimeLimit& limit) {
    const std::unique_ptr<char, void (*)(void*)> type(dbus_message_iter_get_signature(&value), dbus_free);
    const Cell name(wire::typeName(type.get()), Colour::Grey);
    DBusMessageIter text;
    if (qstrcmp(type.get(), "as") != 0 || dbus_message_iter_get_element_count(&value) < 2)
        return printLineOf(QString(), name, value, limit);
    printLine(Row{name});
    dbus_message_iter_recurse(&value, &text);
    do
        printLineOf("  ", QString(), text, limit);
    while (dbus_message_iter_next(&text));
}

void print(const Request& request, DBusMessage* answer) {
    const auto put = [&](const QByteArray& piece) { Output::writePiece(piece, request.limit); };
    DBusMessageIter value;
    bool isValue = dbus_message_iter_init(answer, &value);
    if (request.json)
        put(R"({"answer":[)");
    for (bool isFirst = true; isValue; isValue = dbus_message_iter_next(&value), isFirst = false) {
        if (!request.json) {
            printForPeople(value, request.limit);
            continue;
        }
        if (!isFirst)
            put(",");
        wire::writeTypedJson(&value, put);
    }
    if (request.json)
        put(R"(],"method":)" + wire::jsonString(request.arguments.at(1)) + R"(,"module":)" +
            wire::jsonString(request.arguments.at(0)) + "}\n");
}

// Waits for the answer. Late in the time it asks for a sign of life too, so that a method that takes long is told from
// a module that hangs.
wire::Message answerTo(Bus& bus, wire::Message call, const ModuleReport& report, bool& isAlive) {
    const TimeLimit& limit = bus.limit();
    const quint32 number = bus.send(std::move(call));
    const auto isAnswered = [&] { return bus.answerTo(number) != nullptr; };
    isAlive = false;
    if (!limit.isUnlimited() && !bus.waitUntil(isAnswered, limit.forAnswers())) {
        const quint32 probe = bus.send(signOfLifeFrom(report));
        (void)bus.waitUntil(isAnswered, limit.end());
        isAlive = isSignOfLife(bus.answerTo(probe));
    }
    (void)bus.waitUntil(isAnswered, limit.end());
    DBusMessage* const answer = bus.answerTo(number);
    return wire::Message(answer ? dbus_message_ref(answer) : nullptr);
}

} // namespace

int runCall(const Request& request) {
    const QString module = request.arguments.at(0);
    const QString object = module + '.' + request.arguments.at(1);
    Bus bus(request.limit, request.address);
    const ModuleReport report = requireModule(bus, "call", object, module, request.limit.forAnswers());
    if (report.state == ModuleState::Unresponsive)
        throw Failure{TimeLimitReached, QString("cannot call '%1': %2; gave up after %3, nothing was sent")
                                            .arg(object, whySilent(report), request.limit.text())};
    bool isAlive = false;
    const wire::Message answer = answerTo(bus, callFor(request, report, object), report, isAlive);
    if (!answer && isAlive)
        throw Failure{TimeLimitReached, QString("cannot call '%1': %2 has not answered within %3, and its event loop "
                                                "runs: the method takes longer; '--timeout' gives it more time")
                                            .arg(object, module, request.limit.text())};
    if (!answer)
        throw Failure{
            TimeLimitReached,
            QString("cannot call '%1': %2; no answer within %3").arg(object, whySilent(report), request.limit.text())};
    if (isError(answer.get()) && isFromBusDaemon(answer.get()))
        throw Failure{NotRunning, QString("cannot call '%1': %2 left the bus without an answer").arg(object, module)};
    if (isError(answer.get()))
        throw Failure{AnsweredError,
                      QString("cannot call '%1': %2 answered %3: %4")
                          .arg(object, module, QString::fromUtf8(dbus_message_get_error_name(answer.get())),
                               firstText(answer.get()))};
    print(request, answer.get());
    return Ok;
}

} // namespace velctl
