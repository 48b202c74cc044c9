// velctl stop: publishes a module's stop event, and waits for its end.
#include "Bus.h"
#include "Commands.h"
#include "Event.h"
#include "ModuleReport.h"
#include "Output.h"

namespace velctl {

namespace {

QString whyStillThere(const ModuleReport& report, bool hasLeftBus) {
    if (hasLeftBus)
        return QString("it has left the bus, but its process %1 has not ended").arg(report.process.pid);
    if (report.state == ModuleState::Running)
        return "it has the event and is still there; it may be stopping, or not have come to its run() before, "
               "where stops are not remembered";
    return whySilent(report);
}

} // namespace

int runStop(const Request& request) {
    const QString module = request.arguments.first();
    Bus bus(request.limit, request.address);
    const ModuleReport report = requireModule(bus, "stop", module, module, request.limit.forSignsOfLife());
    const OwnerWatch watch(bus, module);
    bus.publish(wire::makeEvent(request.publisher, "stop_module_" + module, QString(), {}).get());

    // Another instance may take the name at once: this one has left when the name's owner is another.
    bool hasLeftBus = false;
    const auto hasEnded = [&] {
        hasLeftBus = hasLeftBus || watch.owner() != report.uniqueName;
        return hasLeftBus && processInfo(report.process.pid).hasEnded();
    };
    if (!bus.waitUntil(hasEnded, request.limit.end(), lookEveryMs))
        throw Failure{TimeLimitReached, QString("cannot stop '%1': %2; gave up after %3")
                                            .arg(module, whyStillThere(report, hasLeftBus), request.limit.text())};
    if (request.json)
        printLine(QJsonObject{{"module", module}, {"pid", report.process.pid}, {"state", "ended"}});
    else
        printLine(QString("%1 has ended, process %2").arg(module).arg(report.process.pid));
    return Ok;
}

} // namespace velctl
