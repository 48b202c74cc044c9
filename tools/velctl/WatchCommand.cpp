// velctl watch: events as they are published.
//
// The bus's messages are taken whether anybody reads the output or not: a connection that does not take its messages
// costs the bus memory, and may cost other programs their connections. So lines that the output does not take are
// counted, and the reader is told of them.
#include "Bus.h"
#include "Commands.h"
#include "Event.h"
#include "EventFilter.h"
#include "Output.h"

#include "wire/Json.h"

#include <QDateTime>
#include <QMap>

#include <limits>

namespace velctl {

namespace {

constexpr int longestLine = 64 << 20; // bytes: what is longer is counted as not shown

// Whole or not at all: half a line would be no JSON.
bool printEvent(DBusMessage* event, bool isJson) {
    if (!isJson) {
        printLine(eventLine(event));
        return true;
    }
    QByteArray line;
    wire::writeEventJson(event, [&line](const QByteArray& piece) {
        if (line.size() <= longestLine)
            line += piece;
    });
    if (line.size() > longestLine)
        return false;
    Output::writeWhole(line + '\n');
    return true;
}

class Shown {
public:
    explicit Shown(const Request& request) : m_request(request) {}

    bool isDone() const { return m_request.count > 0 && m_seen >= m_request.count; }
    int seen() const { return m_seen; }

    void take(DBusMessage* event) {
        if (isDone())
            return; // came in the same turn as the last one wanted
        if (Output::isFull() || !printEvent(event, m_request.json)) {
            ++m_missing;
            return;
        }
        ++m_seen;
        tellMissing();
    }

    void tellMissing() {
        if (m_missing > 0)
            printMessage(QString("%1 events are not shown: they came faster than the output was read").arg(m_missing));
        m_missing = 0;
    }

private:
    const Request& m_request;
    int m_seen = 0;
    qint64 m_missing = 0;
};

// Events a second, by name, told every second.
class Rate {
public:
    void take(DBusMessage* event) {
        constexpr int mostNames = 1000; // more than a system has; a stranger may make up any number
        const QString name = QString::fromUtf8(dbus_message_get_member(event));
        ++m_counts[m_counts.size() < mostNames || m_counts.contains(name) ? name : QString("(others)")];
    }

    void tell(bool isJson) {
        const QDateTime now = QDateTime::currentDateTime();
        QJsonObject counts;
        QStringList texts;
        for (auto count = m_counts.cbegin(); count != m_counts.cend(); ++count) {
            counts.insert(count.key(), count.value());
            texts += QString("%1 %2/s").arg(count.key()).arg(count.value());
        }
        if (isJson)
            printLine(QJsonObject{{"time", now.toString(Qt::ISODateWithMs)}, {"rate", counts}});
        else
            printLine(Row{{now.toString("HH:mm:ss"), Colour::Grey}, {"  " + (texts + QStringList()).join("  ")}});
        m_counts.clear();
    }

private:
    QMap<QString, int> m_counts;
};

int watchRate(const Request& request, Bus& bus, const EventFilter& filter) {
    constexpr int intervalMs = 1000;
    Rate rate;
    filter.subscribe(bus, [&](DBusMessage* event) { rate.take(event); });
    printMessage("counting " + (request.arguments.isEmpty() ? "every event" : request.arguments.join(", ")));
    const int most = request.count > 0 ? request.count : std::numeric_limits<int>::max();
    QDeadlineTimer next(intervalMs, Qt::PreciseTimer);
    for (int told = 0; told < most; ++told) {
        (void)bus.waitUntil([&] { return request.limit.hasPassed() || !Output::hasReader(); },
                            std::min(next, request.limit.end()));
        if (!Output::hasReader())
            Output::endWithoutReader();
        if (request.limit.hasPassed())
            break;
        if (!Output::isFull())
            rate.tell(request.json);
        next += intervalMs;
    }
    return Ok;
}

} // namespace

int runWatch(const Request& request) {
    const EventFilter filter("watch", request.arguments, request.from);
    Bus bus(request.limit, request.address);
    if (request.rate)
        return watchRate(request, bus, filter);
    Shown shown(request);
    filter.subscribe(bus, [&](DBusMessage* event) { shown.take(event); });
    printMessage("watching " + (request.arguments.isEmpty() ? "every event" : request.arguments.join(", ")));
    (void)bus.waitUntil([&] { return shown.isDone() || !Output::hasReader(); }, request.limit.end());
    if (!Output::hasReader() && !shown.isDone())
        Output::endWithoutReader();
    shown.tellMissing();
    if (request.count > 0 && !shown.isDone())
        throw Failure{TimeLimitReached, QString("cannot watch %1 events: only %2 within %3; gave up")
                                            .arg(request.count)
                                            .arg(shown.seen())
                                            .arg(request.limit.text())};
    return Ok; // the limit was the time to watch
}

} // namespace velctl
