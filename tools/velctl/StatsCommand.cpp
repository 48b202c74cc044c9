// velctl stats: what is in a recording, counted.
#include "Commands.h"
#include "Output.h"
#include "Recordings.h"

#include <QDateTime>
#include <QJsonArray>

#include <algorithm>
#include <map>
#include <set>

namespace velctl {

namespace {

using recording::Reader;
using recording::Seen;
using recording::Time;

constexpr double second = 1e9;

struct EventCount {
    quint64 count = 0;
    quint64 bytes = 0;
    std::set<int> publishers;
};

struct MethodCount {
    quint64 calls = 0;
    quint64 expected = 0; ///< answers
    quint64 errors = 0;
    quint64 bytes = 0;       ///< of calls and answers
    std::vector<Time> times; ///< until the answers

    quint64 unanswered() const { return expected - times.size(); }
    Time at(double share) {
        if (times.empty())
            return -1;
        const auto place = times.begin() + static_cast<std::ptrdiff_t>(share * double(times.size() - 1) + 0.5);
        std::nth_element(times.begin(), place, times.end());
        return *place;
    }
};

class Counts {
public:
    void take(const Reader::Packet& packet) {
        const Seen seen = m_traffic.take(packet.header, packet.message, packet.time);
        if (m_messages++ == 0)
            m_first = packet.time;
        m_last = std::max(m_last, packet.time);
        m_bytes += packet.message.size();
        if (seen.kind == Seen::Event) {
            EventCount& event = m_events[seen.name];
            ++event.count;
            event.bytes += packet.message.size();
            event.publishers.insert(seen.from);
        } else if (seen.kind == Seen::Call) {
            MethodCount& method = m_methods[{seen.to, seen.name}];
            ++method.calls;
            method.expected += packet.header.wantsAnswer;
            method.bytes += packet.message.size();
        } else if (seen.kind == Seen::Answer || seen.kind == Seen::Error) {
            MethodCount& method = m_methods[{seen.from, seen.name}];
            method.errors += seen.kind == Seen::Error;
            method.bytes += packet.message.size();
            method.times.push_back(std::max<Time>(packet.time - seen.call->since, 0));
        }
    }

    void print(bool isJson) { isJson ? printJson() : printTables(); }

private:
    double seconds() const { return double(std::max<Time>(m_last - m_first, 1)) / second; }

    QStringList namesOf(const std::set<int>& participants) const {
        QStringList names;
        for (const int one : participants)
            names += QString::fromStdString(m_traffic.participant(one));
        names.sort();
        return names;
    }

    // Those with the most messages first.
    template <typename Map, typename Count>
    static auto sorted(Map& map, Count count) {
        std::vector<std::pair<typename Map::key_type, typename Map::mapped_type*>> rows;
        for (auto& [key, value] : map)
            rows.emplace_back(key, &value);
        std::stable_sort(rows.begin(), rows.end(),
                         [&](const auto& one, const auto& other) { return count(*one.second) > count(*other.second); });
        return rows;
    }

    QString methodName(const std::pair<int, int>& key) const {
        return QString::fromStdString(m_traffic.participant(key.first) + '.' + m_traffic.name(key.second));
    }

    void printTables() {
        const auto number = [](auto value) { return Cell(QString::number(value), Colour::None, true); };
        const auto head = [](const char* text, bool right) { return Cell(text, Colour::Bold, right); };
        const auto time = [](Time value) { return Cell(value < 0 ? "-" : timeText(value), Colour::None, true); };
        printLine(QString("%1 messages, %2, in %3 from %4")
                      .arg(m_messages)
                      .arg(sizeText(m_bytes), timeText(m_last - m_first),
                           QDateTime::fromMSecsSinceEpoch(m_first / 1000000).toString(Qt::ISODateWithMs)));
        QVector<Row> rows{
            {head("EVENT", false), head("COUNT", true), head("PER S", true), head("BYTES", true), head("FROM", false)}};
        for (const auto& [name, event] : sorted(m_events, [](const EventCount& one) { return one.count; })) {
            QStringList from = namesOf(event->publishers);
            constexpr int mostShown = 5;
            if (from.size() > mostShown)
                from = from.mid(0, mostShown) + QStringList(QString("and %1 more").arg(from.size() - mostShown));
            rows.append({{QString::fromStdString(m_traffic.name(name)), Colour::Cyan},
                         number(event->count),
                         {QString::number(double(event->count) / seconds(), 'f', 1), Colour::None, true},
                         number(event->bytes),
                         {from.join(", ")}});
        }
        if (rows.size() > 1)
            printTable(rows);
        rows = {{head("METHOD", false), head("CALLS", true), head("HALF IN", true), head("99 % IN", true),
                 head("SLOWEST", true), head("ERRORS", true), head("UNANSWERED", true)}};
        for (const auto& [key, method] : sorted(m_methods, [](const MethodCount& one) { return one.calls; }))
            rows.append(
                {{methodName(key), Colour::Cyan},
                 number(method->calls),
                 time(method->at(0.5)),
                 time(method->at(0.99)),
                 time(method->at(1)),
                 {QString::number(method->errors), method->errors ? Colour::Red : Colour::None, true},
                 {QString::number(method->unanswered()), method->unanswered() ? Colour::Red : Colour::None, true}});
        if (rows.size() > 1)
            printTable(rows);
    }

    void printJson() {
        printLine(
            QJsonObject{{"messages", double(m_messages)},
                        {"bytes", double(m_bytes)},
                        {"seconds", double(m_last - m_first) / second},
                        {"begin", QDateTime::fromMSecsSinceEpoch(m_first / 1000000).toString(Qt::ISODateWithMs)}});
        for (const auto& [name, event] : sorted(m_events, [](const EventCount& one) { return one.count; }))
            printLine(QJsonObject{{"event", QString::fromStdString(m_traffic.name(name))},
                                  {"count", double(event->count)},
                                  {"rate", double(event->count) / seconds()},
                                  {"bytes", double(event->bytes)},
                                  {"modules", QJsonArray::fromStringList(namesOf(event->publishers))}});
        const auto time = [](Time value) { return value < 0 ? QJsonValue() : QJsonValue(double(value) / second); };
        for (const auto& [key, method] : sorted(m_methods, [](const MethodCount& one) { return one.calls; }))
            printLine(QJsonObject{{"module", QString::fromStdString(m_traffic.participant(key.first))},
                                  {"method", QString::fromStdString(m_traffic.name(key.second))},
                                  {"calls", double(method->calls)},
                                  {"bytes", double(method->bytes)},
                                  {"p50", time(method->at(0.5))},
                                  {"p99", time(method->at(0.99))},
                                  {"slowest", time(method->at(1))},
                                  {"errors", double(method->errors)},
                                  {"unanswered", double(method->unanswered())}});
    }

    recording::Traffic m_traffic;
    quint64 m_messages = 0;
    quint64 m_bytes = 0;
    Time m_first = 0;
    Time m_last = 0;
    std::map<int, EventCount> m_events;
    std::map<std::pair<int, int>, MethodCount> m_methods;
};

} // namespace

int runStats(const Request& request) {
    Counts counts;
    readRecording(request, "count", [&](const Reader::Packet& packet) {
        counts.take(packet);
        return true;
    });
    counts.print(request.json);
    return Ok;
}

} // namespace velctl
