// velctl wait: until an event is published, a module answers, or a module is gone.
#include "Bus.h"
#include "Commands.h"
#include "Event.h"
#include "EventFilter.h"
#include "ModuleNames.h"
#include "ModuleReport.h"
#include "Output.h"

namespace velctl {

namespace {

int waitForEvent(const Request& request) {
    QList<QPair<QString, QString>> arguments;
    for (const QString& text : request.arguments.mid(1)) {
        const int equals = text.indexOf('=');
        if (equals < 1)
            throw Failure{Usage, QString("cannot wait for '%1': that is no NAME=VALUE").arg(text)};
        arguments.append({text.left(equals), text.mid(equals + 1)});
    }
    const QString name = request.arguments.first();
    const EventFilter filter("wait for", {name}, request.from, arguments);
    Bus bus(request.limit, request.address);
    bool isHeard = false;
    filter.subscribe(bus, [&](DBusMessage* event) {
        if (isHeard)
            return;
        isHeard = true;
        if (!request.json)
            return printLine(eventLine(event));
        const auto put = [&](const QByteArray& piece) { Output::writePiece(piece, request.limit); };
        wire::writeEventJson(event, put);
        put("\n");
    });
    printMessage("waiting for " + request.arguments.join(' '));
    if (bus.waitUntil([&] { return isHeard; }, request.limit.end()))
        return Ok;
    throw Failure{
        TimeLimitReached,
        QString("cannot wait for '%1': nobody published it; gave up after %2").arg(name, request.limit.text())};
}

// Looks at the module unless that is known to be in vain; what was seen stays in `report`.
bool isRunning(Bus& bus, const OwnerWatch& watch, const QString& module, ModuleReport& report) {
    if (watch.owner().isEmpty()) {
        report = ModuleReport();
        return false;
    }
    if (report.uniqueName == watch.owner()) {
        const ProcessInfo process = processInfo(report.process.pid);
        if (process.isStopped() || process.isTraced())
            return false;
    }
    try {
        const QList<ModuleReport> reports = lookAt(bus, {module}, bus.limit().forSignsOfLife());
        report = reports.value(0);
        return !reports.isEmpty() && report.state == ModuleState::Running;
    } catch (const Failure& failure) {
        if (failure.status != TimeLimitReached)
            throw;
        return false; // no time was left to ask: the reason is in what was seen before
    }
}

int waitForStart(const Request& request, const QString& module) {
    requireValidName("wait for", "a module", module);
    Bus bus(request.limit, request.address);
    const OwnerWatch watch(bus, module);
    ModuleReport report;
    // Nothing announces that a stopped process goes on, or that a busy one is done: this looks again and again.
    if (!bus.waitUntil([&] { return isRunning(bus, watch, module, report); }, request.limit.end(), lookEveryMs))
        throw Failure{TimeLimitReached,
                      QString("cannot wait for '%1' to run: %2; gave up after %3")
                          .arg(module,
                               watch.owner().isEmpty() ? "there is no such module on the bus" : whySilent(report),
                               request.limit.text())};
    if (request.json)
        printLine(report.toJson());
    else
        printLine(QString("%1 is running, process %2").arg(module).arg(report.process.pid));
    return Ok;
}

int waitForEnd(const Request& request, const QString& module) {
    requireValidName("wait for", "a module", module);
    Bus bus(request.limit, request.address);
    const OwnerWatch watch(bus, module);
    const qint64 process = watch.owner().isEmpty() ? 0 : bus.processOf(watch.owner());
    if (!bus.waitUntil([&] { return watch.owner().isEmpty(); }, request.limit.end()))
        throw Failure{TimeLimitReached,
                      QString("cannot wait for '%1' to go: it is still on the bus, process %2; gave up after %3")
                          .arg(module)
                          .arg(process)
                          .arg(request.limit.text())};
    if (request.json)
        printLine(QJsonObject{{"module", module}, {"state", "gone"}});
    else
        printLine(module + " is not on the bus");
    return Ok;
}

} // namespace

int runWait(const Request& request) {
    const int wishes = !request.arguments.isEmpty() + !request.running.isEmpty() + !request.gone.isEmpty();
    if (wishes != 1)
        throw Failure{
            Usage, "cannot run 'wait': it waits for exactly one thing; right is: velctl wait EVENT [NAME=VALUE...], or "
                   "velctl wait --running MODULE, or velctl wait --gone MODULE"};
    if (!request.running.isEmpty())
        return waitForStart(request, request.running);
    if (!request.gone.isEmpty())
        return waitForEnd(request, request.gone);
    return waitForEvent(request);
}

} // namespace velctl
