// velctl list: every module on the bus.
#include "Bus.h"
#include "Commands.h"
#include "ModuleReport.h"
#include "Output.h"

namespace velctl {

int runList(const Request& request) {
    Bus bus(request.limit, request.address);
    const QStringList modules = bus.modules();
    if (request.namesOnly) {
        for (const QString& module : modules)
            printLine(module);
        return Ok;
    }
    const QList<ModuleReport> reports = lookAt(bus, modules, request.limit.forSignsOfLife());
    if (request.json) {
        for (const ModuleReport& report : reports)
            printLine(report.toJson());
        return Ok;
    }
    if (reports.isEmpty()) {
        printMessage("there is no module on the bus");
        return Ok;
    }
    QVector<Row> rows = {{{"MODULE", Colour::Bold},
                          {"PROCESS", Colour::Bold, true},
                          {"STATE", Colour::Bold},
                          {"MEMORY", Colour::Bold, true},
                          {"UPTIME", Colour::Bold, true},
                          {"PROGRAM", Colour::Bold}}};
    for (const ModuleReport& report : reports) {
        rows.append(Row{{report.module},
                        {QString::number(report.process.pid), Colour::None, true},
                        {report.stateText(), report.stateColour()},
                        {memoryText(report.process.memory), Colour::None, true},
                        {durationText(report.process.uptime), Colour::None, true},
                        {report.process.program, Colour::Grey}});
    }
    printTable(rows);
    return Ok;
}

} // namespace velctl
