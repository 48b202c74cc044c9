// velctl subscribers: which modules have subscribed an event, or which events there are, by what modules tell of themselves.
#include "Bus.h"
#include "Commands.h"
#include "ModuleNames.h"
#include "ModuleReport.h"
#include "Output.h"

#include <QJsonArray>

#include <algorithm>

namespace velctl {

namespace {

// "" stands for every event; it is a subscription and no name.
int listEvents(const Request& request, const QList<ModuleReport>& reports) {
    QMap<QString, QStringList> subscribers;
    for (const ModuleReport& report : reports) {
        for (const QJsonValue& event : report.info.value("Subscriptions").toArray())
            subscribers[event.toString()] += report.module;
    }
    QVector<Row> rows;
    for (auto event = subscribers.cbegin(); event != subscribers.cend(); ++event) {
        if (request.json)
            printLine(QJsonObject{{"event", event.key()}, {"modules", QJsonArray::fromStringList(*event)}});
        else if (!request.namesOnly)
            rows += Row{{event.key().isEmpty() ? "(every event)" : event.key()}, {event->join(", ")}};
        else if (!event.key().isEmpty())
            printLine(event.key());
    }
    printTable(rows);
    return Ok;
}

} // namespace

int runSubscribers(const Request& request) {
    if (request.arguments.isEmpty()) {
        Bus bus(request.limit, request.address);
        return listEvents(request, lookAt(bus, bus.modules(), request.limit.forSignsOfLife(), Question::Info));
    }
    const QString event = request.arguments.first();
    requireValidName("look for the subscribers of", "an event", event);
    Bus bus(request.limit, request.address);
    bool isFound = false;
    Status status = Ok;
    QVector<Row> rows;
    for (const ModuleReport& report : lookAt(bus, bus.modules(), request.limit.forSignsOfLife(), Question::Info)) {
        const QJsonArray events = report.info.value("Subscriptions").toArray();
        const bool isKnown = report.info.contains("Subscriptions");
        const bool isSubscribed = events.contains(event) || events.contains(QString()); // "" is every event
        isFound = isFound || isSubscribed;
        if (isKnown && !isSubscribed)
            continue;
        status = std::max(status, statusFor(report.state));
        const QString reason = isKnown                                ? QString()
                               : report.state == ModuleState::Running ? QString("it does not tell")
                                                                      : whySilent(report);
        if (request.json)
            printLine(QJsonObject{{"module", report.module},
                                  {"event", event},
                                  {"subscribed", isKnown ? QJsonValue(true) : QJsonValue()},
                                  {"reason", reason}});
        rows.append(Row{{report.module},
                        {isKnown ? "subscribed" : "not known", isKnown ? Colour::Green : Colour::Yellow},
                        {reason}});
    }
    if (!request.json)
        printTable(rows);
    if (!isFound && status == Ok)
        throw Failure{
            Unknown,
            QString("cannot find a subscriber of '%1': no module that tells has subscribed that event").arg(event)};
    return status;
}

} // namespace velctl
