// velctl watch: events as they are published.
#include "Bus.h"
#include "Commands.h"
#include "EventEar.h"
#include "Failure.h"
#include "ModuleNames.h"
#include "Table.h"

namespace velctl {

int runWatch(const Request& request) {
    for (const QString& name : request.arguments)
        requireValidName("watch", "an event", name);
    Bus bus(request.limit);
    int seen = 0;
    const auto isDone = [&] { return request.count > 0 && seen >= request.count; };
    const EventEar ear(bus, request.arguments, [&](const Event& event) {
        if (isDone())
            return; // came in the same turn as the last one wanted
        ++seen;
        if (request.json)
            printLine(event.toJson());
        else
            printLine(event.line());
    });
    printMessage("watching " + (request.arguments.isEmpty() ? "every event" : request.arguments.join(", ")));
    const bool isEnded = request.limit.waitUntil([&] { return isDone() || !bus.connection().isConnected(); });
    if (isDone())
        return Ok;
    if (isEnded)
        throw Failure{NoBus, "cannot go on watching: the bus ended the connection; later events are not seen"};
    if (request.count > 0)
        throw Failure{TimeLimitReached, QString("cannot watch %1 events: only %2 within %3; gave up")
                                            .arg(request.count)
                                            .arg(seen)
                                            .arg(request.limit.text())};
    return Ok; // the limit was the time to watch
}

} // namespace velctl
