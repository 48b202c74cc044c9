// velctl list: every module on the bus.
#include "Bus.h"
#include "Commands.h"
#include "ModuleReport.h"
#include "Output.h"
#include "Supervisor.h"

namespace velctl {

namespace {

Row titles(const QStringList& names) {
    const QStringList numbers = {"PROCESS", "MEMORY", "UPTIME", "RESTARTS"};
    Row row;
    for (const QString& name : names)
        row += Cell(name, Colour::Bold, numbers.contains(name));
    return row;
}

// A module whose run() failed goes on, and ends with a status of its own.
Cell stateOf(const ModuleReport& report) {
    constexpr int runError = 4;
    if (report.info.value("PendingStatus").toInt() == runError)
        return {"run() failed", Colour::Yellow};
    return {report.stateText(), report.stateColour()};
}

// Where a module runs that a bridge has put on this bus; empty for one of this machine.
QString machineOf(const ModuleReport& report) {
    return report.info.value("Machine").toString();
}

Cell placeOf(const ModuleReport& report) {
    return {machineOf(report).isEmpty() ? QString() : "on " + machineOf(report), Colour::Grey};
}

Row rowOf(const ModuleReport& report) {
    if (!machineOf(report).isEmpty()) // the process here is the bridge's
        return {{report.module}, {"-", Colour::None, true}, stateOf(report), {""}, {""}};
    return {{report.module},
            {QString::number(report.process.pid), Colour::None, true},
            stateOf(report),
            {memoryText(report.process.memory), Colour::None, true},
            {durationText(report.process.uptime), Colour::None, true}};
}

// Of the modules on the bus and in the supervisor's configuration, by name; a module may be in one only.
void listAll(const Request& request, const QList<ModuleReport>& reports, const QMap<QString, QJsonObject>& supervised) {
    QMap<QString, Row> rows;
    QMap<QString, QJsonObject> objects;
    for (const ModuleReport& report : reports) {
        rows.insert(report.module, rowOf(report));
        if (!supervised.contains(report.module) && !machineOf(report).isEmpty())
            rows[report.module] += Row{{""}, placeOf(report)};
        objects.insert(report.module, report.toJson());
    }
    for (auto module = supervised.cbegin(); module != supervised.cend(); ++module) {
        const QString state = module->value("State").toString();
        if (!rows.contains(module.key()))
            rows.insert(module.key(), {{module.key()}, {"-", Colour::None, true}, {state, Colour::Yellow}, {""}, {""}});
        rows[module.key()] += Row{{QString::number(module->value("Restarts").toInt()), Colour::None, true},
                                  {whyDown(*module), Colour::Grey}};
        QJsonObject& object = objects[module.key()];
        object.insert("module", module.key());
        if (!object.contains("state"))
            object.insert("state", state);
        object.insert("supervised", *module);
    }
    if (request.json) {
        for (const QJsonObject& object : qAsConst(objects))
            printLine(object);
        return;
    }
    QVector<Row> table = {titles({"MODULE", "PROCESS", "STATE", "MEMORY", "UPTIME", "RESTARTS", "LAST END"})};
    for (const Row& row : qAsConst(rows))
        table += row;
    printTable(table);
}

} // namespace

int runList(const Request& request) {
    Bus bus(request.limit, request.address);
    const QStringList modules = bus.modules();
    const auto supervised =
        request.all ? supervisedModules(bus, request.limit.forSignsOfLife()) : QMap<QString, QJsonObject>();
    if (request.all && supervised.isEmpty())
        printMessage("the supervisor is not there, or does not answer: only modules on the bus are shown");
    if (request.namesOnly) {
        QStringList names = modules + QStringList(supervised.keys());
        names.removeDuplicates();
        names.sort();
        for (const QString& name : qAsConst(names))
            printLine(name);
        return Ok;
    }
    const QList<ModuleReport> reports = lookAt(bus, modules, request.limit.forSignsOfLife(), Question::Info);
    if (reports.isEmpty() && supervised.isEmpty()) {
        if (!request.json)
            printMessage("there is no module on the bus");
        return Ok;
    }
    if (request.all) {
        listAll(request, reports, supervised);
        return Ok;
    }
    QVector<Row> table = {titles({"MODULE", "PROCESS", "STATE", "MEMORY", "UPTIME", "PROGRAM"})};
    for (const ModuleReport& report : reports) {
        if (request.json) {
            QJsonObject json = report.toJson();
            json.remove("info"); // that is for --all
            if (!machineOf(report).isEmpty())
                json.insert("machine", machineOf(report));
            printLine(json);
        }
        table += rowOf(report) +
                 (machineOf(report).isEmpty() ? Row{{report.process.program, Colour::Grey}} : Row{placeOf(report)});
    }
    if (!request.json)
        printTable(table);
    return Ok;
}

} // namespace velctl
