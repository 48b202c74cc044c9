// velctl reset: publishes a reset, and gathers the modules' answers.
#include "Bus.h"
#include "Commands.h"
#include "EventEar.h"
#include "Failure.h"
#include "ModuleReport.h"
#include "Table.h"

#include <QMap>

#include <algorithm>

namespace velctl {

namespace {

struct Answer {
    bool needsReboot;
};

// The text or truth under a name in an event's arguments.
QVariant argumentOf(const Event& event, const QString& name) {
    if (!event.hasEventForm())
        return QVariant();
    for (const Value& argument : event.body.front().children.back().children) {
        if (argument.children.at(0).basic.toString() == name)
            return argument.children.at(1).children.at(0).basic;
    }
    return QVariant();
}

void printAnswered(const Request& request, const QString& module, const Answer& answer, QVector<Row>& rows) {
    if (request.json)
        printLine(QJsonObject{{"module", module}, {"answered", true}, {"needReboot", answer.needsReboot}});
    rows.append(Row{{module}, {"done", Colour::Green}, {answer.needsReboot ? "wants a reboot" : "", Colour::Yellow}});
}

void printMissing(const Request& request, const QString& module, const QString& reason, QVector<Row>& rows) {
    if (request.json)
        printLine(QJsonObject{{"module", module}, {"answered", false}, {"reason", reason}});
    rows.append(Row{{module}, {"missing", Colour::Red}, {reason}});
}

} // namespace

int runReset(const Request& request) {
    const QString kind = request.arguments.first();
    if (kind != "default" && kind != "factory")
        throw Failure{Usage, QString("cannot reset to '%1': there is no such reset; right is: velctl reset "
                                     "default|factory")
                                 .arg(kind)};
    Bus bus(request.limit);
    QMap<QString, Answer> answers;
    const EventEar ear(bus, {QString("reset_%1_done").arg(kind)}, [&](const Event& event) {
        answers.insert(argumentOf(event, "ModuleName").toString(), {argumentOf(event, "NeedReboot").toBool()});
    });
    const QList<ModuleReport> reports = lookAt(bus, bus.modules(), request.limit.forSignsOfLife());
    bus.send(Event::make(request.publisher, "reset_data_" + kind, QString(), {}).toMessage());

    // Those that are stopped will not answer, and the answer of one that ends meanwhile will not come.
    const auto isStillExpected = [&](const ModuleReport& report) {
        const ProcessInfo process = processInfo(report.process.pid);
        return !answers.contains(report.module) && !process.isStopped() && !process.isTraced() &&
               (report.process.pid == 0 || !process.hasEnded());
    };
    const bool isComplete =
        request.limit.waitUntil([&] { return std::none_of(reports.begin(), reports.end(), isStillExpected); });

    QVector<Row> rows;
    Status status = isComplete ? Ok : TimeLimitReached;
    for (const ModuleReport& report : reports) {
        if (answers.contains(report.module)) {
            printAnswered(request, report.module, answers.take(report.module), rows);
            continue;
        }
        const bool answersCalls = report.state == ModuleState::Running && isStillExpected(report);
        printMissing(request, report.module,
                     answersCalls ? "no answer: its reset goes on, or has failed" : whySilent(report), rows);
        status = std::max(status, NotRunning);
    }
    for (auto answer = answers.cbegin(); answer != answers.cend(); ++answer) // started meanwhile
        printAnswered(request, answer.key(), answer.value(), rows);
    if (!request.json)
        printTable(rows);
    if (rows.isEmpty() && reports.isEmpty())
        printMessage("there is no module on the bus that could be reset");
    return status;
}

} // namespace velctl
