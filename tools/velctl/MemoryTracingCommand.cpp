// velctl mtrace: the C library's memory tracing in one module.
#include "Commands.h"
#include "ControlEvent.h"
#include "ModuleReport.h"

namespace velctl {

int runMemoryTracing(const Request& request) {
    const QString direction = request.arguments.at(0);
    const QString module = request.arguments.at(1);
    if (direction != "on" && direction != "off")
        throw Failure{Usage, QString("cannot switch memory tracing '%1': it is on or off; right is: velctl mtrace "
                                     "on|off MODULE")
                                 .arg(direction)};
    Bus bus(request.limit, request.address);
    const ModuleReport before = requireModule(bus, "trace", module, module, request.limit.forSignsOfLife());
    const int status =
        sendControlEvent(request, bus, "mtrace_" + direction, {wire::textArgument("module", module)}, {module});
    const QString obstacle = direction == "on" ? whyTracingWritesNothing(before.process.pid) : QString();
    if (obstacle.isEmpty() || status != Ok)
        return status;
    throw Failure{Failed, QString("cannot trace '%1': %2; tracing is on and writes nothing").arg(module, obstacle)};
}

} // namespace velctl
