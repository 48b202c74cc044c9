// velctl loglevel and velctl mtrace: control events that modules take without an answer of their own.
//
// Who has taken one is seen all the same: a module's event loop answers calls in the order in which they and
// the events came. So every module is called after the publication, and an answer says that the event was
// taken before it.
#include "Bus.h"
#include "Commands.h"
#include "Event.h"
#include "Failure.h"
#include "ModuleReport.h"
#include "Table.h"

#include <algorithm>

namespace velctl {

namespace {

constexpr int highestLevel = 7;

int levelOf(const QString& text) {
    const QList<QPair<QString, int>> names = {{"silent", 0}, {"error", 3}, {"warning", 4}, {"info", 6}, {"debug", 7}};
    for (const auto& [name, level] : names) {
        if (text == name)
            return level;
    }
    bool isNumber = false;
    const int level = text.toInt(&isNumber);
    if (isNumber && level >= 0 && level <= highestLevel)
        return level;
    throw Failure{Usage, QString("cannot set the log level '%1': there is no such level; right is 0 to 7, or "
                                 "silent, error, warning, info, debug")
                             .arg(text)};
}

// An answer takes the whole time that is left, but for what is needed to say that it did not come.
int patience(const TimeLimit& limit) {
    return std::max(1, limit.forOneCall() * 9 / 10);
}

Status worse(Status one, Status other) {
    return std::max(one, other); // nothing, not running, time limit
}

int printTaken(const Request& request, const QList<ModuleReport>& reports) {
    Status status = Ok;
    QVector<Row> rows;
    for (const ModuleReport& report : reports) {
        const bool hasTaken = report.state == ModuleState::Running;
        status = worse(status, statusFor(report.state));
        const QString reason = hasTaken ? QString() : whySilent(report);
        if (request.json)
            printLine(QJsonObject{
                {"module", report.module}, {"taken", hasTaken}, {"state", report.stateText()}, {"reason", reason}});
        rows.append(
            Row{{report.module}, {hasTaken ? "taken" : "missing", hasTaken ? Colour::Green : Colour::Red}, {reason}});
    }
    if (!request.json)
        printTable(rows);
    return status;
}

} // namespace

int runLogLevel(const Request& request) {
    const int level = levelOf(request.arguments.first());
    Bus bus(request.limit);
    const QStringList modules = bus.modules();
    bus.send(Event::make(request.publisher, "log_level_changed", QString(),
                         {{"syslog_facility", textValue(request.facility)}, {"syslog_level", intValue(level)}})
                 .toMessage());
    if (modules.isEmpty())
        printMessage("there is no module on the bus that could take the level");
    return printTaken(request, lookAt(bus, modules, patience(request.limit)));
}

int runMemoryTracing(const Request& request) {
    const QString direction = request.arguments.at(0);
    const QString module = request.arguments.at(1);
    if (direction != "on" && direction != "off")
        throw Failure{Usage, QString("cannot switch memory tracing '%1': it is on or off; right is: velctl mtrace "
                                     "on|off MODULE")
                                 .arg(direction)};
    Bus bus(request.limit);
    const ModuleReport before = requireModule(bus, "trace", module, module, request.limit.forSignsOfLife());
    bus.send(
        Event::make(request.publisher, "mtrace_" + direction, QString(), {{"module", textValue(module)}}).toMessage());
    const int status = printTaken(request, lookAt(bus, {module}, patience(request.limit)));
    const QString obstacle = direction == "on" ? whyTracingWritesNothing(before.process.pid) : QString();
    if (obstacle.isEmpty() || status != Ok)
        return status;
    throw Failure{Failed, QString("cannot trace '%1': %2; tracing is on and writes nothing").arg(module, obstacle)};
}

} // namespace velctl
