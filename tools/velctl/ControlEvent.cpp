// Control events that modules take without an answer of their own.
//
// Whom one has reached is seen all the same: a module's event loop answers calls in the order in which they and the
// events came. So every module is called after the publication, and an answer says that the event was delivered before
// it. What the module made of it nobody knows.
#include "ControlEvent.h"

#include "ModuleReport.h"
#include "Output.h"

#include <algorithm>

namespace velctl {

int sendControlEvent(const Request& request, Bus& bus, const QString& name, std::vector<wire::EventArgument> arguments,
                     const QStringList& modules) {
    bus.publish(wire::makeEvent(request.publisher, name, QString(), std::move(arguments)).get());
    Status status = Ok;
    QVector<Row> rows;
    for (const ModuleReport& report : lookAt(bus, modules, request.limit.forAnswers())) {
        const bool isReached = report.state == ModuleState::Running;
        status = std::max(status, statusFor(report.state)); // nothing, not running, time limit
        const QString reason = isReached ? QString() : whySilent(report);
        if (request.json)
            printLine(QJsonObject{
                {"module", report.module}, {"sent", isReached}, {"state", report.stateText()}, {"reason", reason}});
        rows.append(
            Row{{report.module}, {isReached ? "sent" : "missing", isReached ? Colour::Green : Colour::Red}, {reason}});
    }
    if (!request.json)
        printTable(rows);
    return status;
}

} // namespace velctl
