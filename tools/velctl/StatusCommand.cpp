// velctl status: one module, with its bus names, its methods, and what it waits for.
#include "Bus.h"
#include "Commands.h"
#include "Introspection.h"
#include "ModuleNames.h"
#include "ModuleReport.h"
#include "Output.h"
#include "Supervisor.h"

#include <QDateTime>
#include <QJsonArray>

namespace velctl {

namespace {

QJsonArray argumentsToJson(const QList<MethodArgument>& arguments) {
    QJsonArray array;
    for (const MethodArgument& argument : arguments)
        array.append(QJsonObject{
            {"name", argument.name}, {"type", QString::fromLatin1(argument.type)}, {"qtType", argument.qtType}});
    return array;
}

QJsonArray methodsToJson(const QList<Method>& methods) {
    QJsonArray array;
    for (const Method& method : methods)
        array.append(QJsonObject{{"interface", method.interface},
                                 {"name", method.name},
                                 {"in", argumentsToJson(method.in)},
                                 {"out", argumentsToJson(method.out)}});
    return array;
}

// Empty for a module that runs.
QString silenceOf(const ModuleReport& report) {
    return report.state == ModuleState::Running ? QString() : whySilent(report);
}

// What the module tells of itself.
QVector<Row> rowsOf(const QJsonObject& info) {
    if (info.isEmpty())
        return {};
    QStringList events;
    for (const QJsonValue& name : info.value("Subscriptions").toArray())
        events += name.toString().isEmpty() ? QString("(every event)") : name.toString();
    QVector<Row> rows = {{{"lifecycle"}, {info.value("State").toString()}},
                         {{"log level"}, {QString::number(info.value("LogLevel").toInt())}},
                         {{"subscribed"}, {events.join(", ")}}};
    if (const QString error = info.value("LastError").toString(); !error.isEmpty()) {
        const qint64 time = info.value("LastErrorTime").toString().toLongLong();
        rows.append(
            Row{{"last error"},
                {QDateTime::fromMSecsSinceEpoch(time).toString(Qt::ISODateWithMs) + ": " + error, Colour::Red}});
    }
    return rows;
}

// A module that is not on the bus, as the supervisor knows it.
void printDown(const Request& request, const QString& module, const QJsonObject& supervised) {
    const QString state = supervised.value("State").toString();
    if (request.json)
        return printLine(QJsonObject{{"module", module}, {"state", state}, {"supervised", supervised}});
    QVector<Row> rows = {{{"module"}, {module, Colour::Bold}}, {{"state"}, {state, Colour::Yellow}}};
    if (const QString why = whyDown(supervised); !why.isEmpty())
        rows.append(Row{{"reason"}, {why}});
    if (supervised.contains("StatusName"))
        rows.append(Row{{"status"},
                        {QString("%1, %2")
                             .arg(supervised.value("Status").toInt())
                             .arg(supervised.value("StatusName").toString())}});
    if (supervised.contains("Signal"))
        rows.append(Row{{"signal"}, {QString::number(supervised.value("Signal").toInt())}});
    if (supervised.contains("EndedAt"))
        rows.append(Row{{"ended"},
                        {QDateTime::fromMSecsSinceEpoch(supervised.value("EndedAt").toString().toLongLong())
                             .toString(Qt::ISODateWithMs)}});
    rows.append(Row{{"restarts"}, {QString::number(supervised.value("Restarts").toInt())}});
    printTable(rows);
}

void printForPeople(const ModuleReport& report, const QList<Method>& methods) {
    QVector<Row> rows = {
        {{"module"}, {report.module, Colour::Bold}},
        {{"state"}, {report.stateText(), report.stateColour()}},
        {{"process"}, {QString::number(report.process.pid)}},
        {{"program"}, {report.process.program}},
        {{"memory"}, {memoryText(report.process.memory)}},
        {{"uptime"}, {durationText(report.process.uptime)}},
        {{"service"}, {serviceOf(report.module)}},
        {{"path"}, {pathOf(report.module)}},
        {{"interface"}, {commonInterface()}},
        {{"connection"}, {report.uniqueName}},
    };
    rows += rowsOf(report.info);
    if (report.state != ModuleState::Running) {
        rows.append(Row{{"reason"}, {silenceOf(report), report.stateColour()}});
        rows.append(Row{{"methods"}, {"unknown: it does not answer", Colour::Grey}});
    } else if (methods.isEmpty()) {
        rows.append(Row{{"methods"}, {"none", Colour::Grey}});
    }
    QString title = "methods";
    for (const Method& method : methods) {
        const bool isCommon = method.interface == commonInterface();
        rows.append(Row{{title}, {method.text() + (isCommon ? QString() : "  of " + method.interface)}});
        title.clear();
    }
    printTable(rows);
}

} // namespace

int runStatus(const Request& request) {
    const QString module = request.arguments.first();
    requireValidName("show", "a module", module);
    Bus bus(request.limit, request.address);
    const QList<ModuleReport> reports = lookAt(bus, {module}, request.limit.forSignsOfLife());
    const QJsonObject supervised =
        reports.isEmpty() ? supervisedModules(bus, request.limit.forSignsOfLife()).value(module) : QJsonObject();
    if (reports.isEmpty() && !supervised.isEmpty()) {
        printDown(request, module, supervised);
        return NotRunning;
    }
    if (reports.isEmpty())
        throw Failure{
            NotRunning,
            QString("cannot show '%1': there is no such module on the bus; %2").arg(module, knownNames(bus.modules()))};
    ModuleReport report = reports.first();
    if (report.state == ModuleState::Running && request.info)
        report.info = infoOf(bus, report, request.limit.forSignsOfLife());
    const QList<Method> methods = methodsIn(report.introspection);
    if (request.namesOnly) {
        for (const Method& method : methods) {
            if (method.interface == commonInterface())
                printLine(method.name);
        }
    } else if (request.json) {
        QJsonObject json = report.toJson();
        json.insert("path", pathOf(module));
        json.insert("interface", commonInterface());
        json.insert("methods", methodsToJson(methods));
        json.insert("reason", silenceOf(report));
        printLine(json);
    } else {
        printForPeople(report, methods);
    }
    return statusFor(report.state);
}

} // namespace velctl
