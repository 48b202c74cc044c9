// velctl replay: the events of a recording once more, byte by byte as they were; and the answers of a module that is not
// there.
#include "Bus.h"
#include "Commands.h"
#include "Event.h"
#include "EventFilter.h"
#include "ModuleNames.h"
#include "Output.h"
#include "Recordings.h"

#include <QElapsedTimer>
#include <QMap>

#include <cmath>
#include <limits>

namespace velctl {

namespace {

using recording::Reader;
using recording::Seen;
using recording::Time;

constexpr double second = 1e9;

// What modules obey. A recording of a system's end would end the system once more.
bool isControlEvent(const QString& name) {
    static const QStringList names = {"log_level_changed",    "mtrace_on",          "mtrace_off",
                                      "reset_data_default",   "reset_data_factory", "presentationLoaded",
                                      "reset_default_done",   "reset_factory_done", "prepare_save_restore",
                                      "stop_save_restore_OK", "restore_done",       "module_ended"};
    return name.startsWith("stop_module_") || name.startsWith("end_of_init_") || names.contains(name);
}

// The same message from this connection: its sender and its number are the bus's and libdbus's to give.
wire::Message again(const Reader::Packet& packet) {
    const wire::Message recorded =
        wire::fromBytes(QByteArray(packet.message.data(), static_cast<int>(packet.message.size())));
    wire::Message copy = wire::made(dbus_message_copy(recorded.get()));
    if (!dbus_message_set_sender(copy.get(), nullptr))
        throw std::bad_alloc();
    return copy;
}

// Answers to calls that a module gave, by method and arguments, in their order.
class Answers {
public:
    void take(const Seen& seen, const Reader::Packet& packet, const recording::Traffic& traffic,
              const QString& module) {
        if (seen.kind == Seen::Call && seen.call && traffic.participant(seen.to) == module.toStdString()) {
            seen.call->tag = static_cast<std::int64_t>(m_keys.size());
            m_keys.push_back(keyOf(packet.header.interface, packet.header.member, packet.header.signature,
                                   packet.message.substr(packet.header.bodyBegin)));
        } else if ((seen.kind == Seen::Answer || seen.kind == Seen::Error) && seen.call->tag >= 0) {
            if (packet.header.sender == DBUS_SERVICE_DBUS)
                return; // that nobody answered
            m_answers[m_keys[static_cast<std::size_t>(seen.call->tag)]].recorded.push_back(
                {QByteArray(packet.message.data(), static_cast<int>(packet.message.size())),
                 packet.time - seen.call->since});
        }
    }

    int count() const {
        int count = 0;
        for (const auto& [key, one] : m_answers)
            count += static_cast<int>(one.recorded.size());
        return count;
    }

    struct Answer {
        wire::Message message;
        Time after = 0;
    };

    // The next one that was given to such a call, from the last one on always that.
    Answer to(DBusMessage* call) {
        const QByteArray bytes = wire::toBytes(call);
        recording::Header header;
        if (!readHeader({bytes.constData(), static_cast<std::size_t>(bytes.size())}, header))
            return {};
        const auto known = m_answers.find(keyOf(
            header.interface, header.member, header.signature,
            std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())).substr(header.bodyBegin)));
        if (known == m_answers.end())
            return {wire::made(dbus_message_new_error(call, DBUS_ERROR_UNKNOWN_METHOD,
                                                      "the recording has no such call with these arguments")),
                    0};
        Given& given = known->second;
        const auto& [recorded, after] = given.recorded[given.next];
        given.next = std::min(given.next + 1, given.recorded.size() - 1);
        const wire::Message original = wire::fromBytes(recorded);
        wire::Message answer = wire::made(dbus_message_copy(original.get()));
        if (!dbus_message_set_sender(answer.get(), nullptr) ||
            !dbus_message_set_destination(answer.get(), dbus_message_get_sender(call)) ||
            !dbus_message_set_reply_serial(answer.get(), dbus_message_get_serial(call)))
            throw std::bad_alloc();
        return {std::move(answer), after};
    }

private:
    struct Given {
        std::vector<std::pair<QByteArray, Time>> recorded;
        std::size_t next = 0;
    };

    static std::string keyOf(std::string_view interface, std::string_view member, std::string_view signature,
                             std::string_view body) {
        std::string key;
        for (const std::string_view part : {interface, member, signature, body})
            (key += part) += '\0';
        return key;
    }

    std::vector<std::string> m_keys; // of the calls, by their tags
    std::map<std::string, Given> m_answers;
};

class Replay {
public:
    explicit Replay(const Request& request)
        : m_request(request), m_isInPlaceOf(request.others.value("as")),
          m_filter("replay", request.arguments.mid(1), m_isInPlaceOf.isEmpty() ? request.from : m_isInPlaceOf),
          m_after(numberOption(request, "after", 0)),
          m_before(numberOption(request, "before", std::numeric_limits<double>::infinity())),
          m_isFlatOut(request.others.contains("flat-out")), m_speed(numberOption(request, "speed", 1)) {
        if (m_isFlatOut && request.others.contains("speed"))
            throw Failure{Usage, "cannot replay both at a speed and flat out"};
        if (!m_isInPlaceOf.isEmpty() && !request.from.isEmpty())
            throw Failure{Usage, "cannot replay events of another module in the place of one"};
        if (!m_isInPlaceOf.isEmpty())
            requireValidName("replay as", "a module", m_isInPlaceOf);
    }

    void learnAnswers() {
        recording::Traffic traffic;
        readRecording(m_request, "replay", [&](const Reader::Packet& packet) {
            const Seen seen = traffic.take(packet.header, packet.message, packet.time);
            m_answers.take(seen, packet, traffic, m_isInPlaceOf);
            return true;
        });
    }

    void takePlace(Bus& bus) {
        m_clock.start();
        bus.answerAs(serviceOf(m_isInPlaceOf), [this](DBusMessage* call) {
            if (dbus_message_get_no_reply(call))
                return;
            Answers::Answer answer = m_answers.to(call);
            const double wait = m_isFlatOut ? 0 : double(answer.after) / m_speed;
            if (answer.message)
                m_toSend.emplace(m_clock.nsecsElapsed() + static_cast<qint64>(wait), std::move(answer.message));
            ++m_answered;
        });
        printMessage(QString("answering as %1: %2 answers are known").arg(m_isInPlaceOf).arg(m_answers.count()));
    }

    // Publishes what is chosen, or only shows it without a bus.
    void publish(Bus* bus) {
        if (!m_clock.isValid()) // calls may have come before
            m_clock.start();
        bool hasBegun = false;
        Time begin = 0;
        readRecording(m_request, "replay", [&](const Reader::Packet& packet) {
            if (!hasBegun)
                begin = packet.time;
            hasBegun = true;
            const double at = double(packet.time - begin) / second;
            if (at > m_before || m_request.limit.hasPassed())
                return false;
            if (at < m_after || !recording::isEvent(packet.header))
                return true;
            const QString name = textOf(packet.header.member);
            if (!m_filter.matches(name, textOf(packet.header.path)))
                return true;
            if (isControlEvent(name) && !m_request.others.contains("control")) {
                ++m_leftOut[name];
                return true;
            }
            publishOne(bus, packet, at);
            return !m_request.limit.hasPassed();
        });
    }

    void answerOn(Bus& bus) {
        printMessage("all events are published; answering calls until it is interrupted");
        waitUntil(bus, std::numeric_limits<qint64>::max());
    }

    void tell() const {
        QStringList leftOut;
        for (auto one = m_leftOut.cbegin(); one != m_leftOut.cend(); ++one)
            leftOut += QString("%1 (%2)").arg(one.key()).arg(one.value());
        if (m_request.json) {
            QJsonObject names;
            for (auto one = m_leftOut.cbegin(); one != m_leftOut.cend(); ++one)
                names.insert(one.key(), one.value());
            return printLine(QJsonObject{{m_request.others.contains("dry-run") ? "chosen" : "published", m_published},
                                         {"answered", m_answered},
                                         {"unusable", m_unusable},
                                         {"leftOut", names}});
        }
        printMessage(QString("%1 events %2")
                         .arg(m_published)
                         .arg(m_request.others.contains("dry-run") ? "would be published" : "published"));
        if (m_unusable > 0)
            printMessage(QString("%1 events are not as the bus takes them; they are left out").arg(m_unusable));
        if (!leftOut.isEmpty())
            printMessage("left out, since modules obey them: " + leftOut.join(", ") +
                         "; --control publishes them, too");
    }

private:
    void publishOne(Bus* bus, const Reader::Packet& packet, double at) {
        wire::Message event;
        try {
            event = again(packet);
        } catch (const wire::Error&) {
            ++m_unusable;
            return;
        }
        if (!bus) {
            ++m_published;
            Row line = eventLine(event.get());
            line[0] = {QString("%1").arg(at, 12, 'f', 6), Colour::Grey}; // in place of the time of now
            return printLine(line);
        }
        if (!m_isFlatOut) {
            constexpr double longest = 9e18;
            waitUntil(*bus, static_cast<qint64>(std::min((at - m_after) / m_speed * second, longest)));
            if (m_request.limit.hasPassed())
                return;
        }
        sendDue(*bus);
        bus->post(event.get());
        ++m_published;
    }

    // Until so many nanoseconds after the beginning; gives answers meanwhile.
    void waitUntil(Bus& bus, qint64 end) {
        constexpr qint64 millisecond = 1000000;
        while (!m_request.limit.hasPassed()) {
            sendDue(bus);
            const qint64 now = m_clock.nsecsElapsed();
            if (now >= end)
                return;
            const qint64 next = m_toSend.empty() ? end : std::min(end, m_toSend.begin()->first);
            QDeadlineTimer until = m_request.limit.end();
            if (next != std::numeric_limits<qint64>::max())
                until =
                    std::min(until, QDeadlineTimer(std::max<qint64>((next - now + millisecond - 1) / millisecond, 0),
                                                   Qt::PreciseTimer));
            const std::size_t waiting = m_toSend.size();
            (void)bus.waitUntil([&] { return m_toSend.size() != waiting; }, until);
        }
    }

    void sendDue(Bus& bus) {
        while (!m_toSend.empty() && m_toSend.begin()->first <= m_clock.nsecsElapsed()) {
            bus.post(m_toSend.begin()->second.get());
            m_toSend.erase(m_toSend.begin());
        }
    }

    const Request& m_request;
    const QString m_isInPlaceOf;
    const EventFilter m_filter;
    const double m_after;
    const double m_before;
    const bool m_isFlatOut;
    const double m_speed;
    Answers m_answers;
    std::multimap<qint64, wire::Message> m_toSend; // answers, by when they are due
    QElapsedTimer m_clock;
    QMap<QString, int> m_leftOut;
    int m_published = 0;
    int m_answered = 0;
    int m_unusable = 0;
};

} // namespace

int runReplay(const Request& request) {
    Replay replay(request);
    if (request.others.contains("dry-run")) {
        replay.publish(nullptr);
        replay.tell();
        return Ok;
    }
    const bool hasPlace = request.others.contains("as");
    if (hasPlace)
        replay.learnAnswers();
    Bus bus(request.limit, request.address);
    if (hasPlace)
        replay.takePlace(bus);
    replay.publish(&bus);
    bus.ask("GetId"); // after which the bus has everything
    if (hasPlace)
        replay.answerOn(bus);
    replay.tell();
    return Ok;
}

} // namespace velctl
