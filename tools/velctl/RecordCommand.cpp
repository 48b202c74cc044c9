// velctl record: what passes on the bus, into a file.
//
// The bus's messages are taken first and written then, whatever the disk does: see Monitor.
#include "Commands.h"
#include "EventFilter.h"
#include "Output.h"
#include "Recordings.h"

#include "recording/Monitor.h"
#include "recording/Writer.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace velctl {

namespace {

using recording::Header;
using recording::Time;

Time now() {
    constexpr Time second = 1000000000;
    timespec clock{};
    clock_gettime(CLOCK_REALTIME, &clock);
    return Time(clock.tv_sec) * second + clock.tv_nsec;
}

// Senders number their messages without gaps, and a monitor without rules is sent all of them. So a gap is what the bus has
// dropped, for want of room.
class Gaps {
public:
    void take(const Header& header) {
        constexpr std::size_t mostSenders = 20000;
        if (header.sender.empty() || header.sender.front() != ':' || header.sender == ":not.active.yet")
            return;
        const std::string sender(header.sender);
        const auto last = m_last.find(sender);
        if (last == m_last.end()) {
            if (m_last.size() < mostSenders)
                m_last.emplace(sender, header.serial);
            return;
        }
        if (header.serial > last->second)
            m_missing += header.serial - last->second - 1;
        last->second = header.serial;
    }
    quint64 missing() const { return m_missing; }

private:
    std::unordered_map<std::string, std::uint32_t> m_last;
    quint64 m_missing = 0;
};

// The signals that end a recording in order.
class Ending {
public:
    Ending() {
        sigset_t ends;
        sigemptyset(&ends);
        for (const int one : {SIGINT, SIGTERM, SIGHUP})
            sigaddset(&ends, one);
        sigprocmask(SIG_BLOCK, &ends, nullptr);
        m_descriptor = signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    ~Ending() { close(m_descriptor); }
    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

class Recording {
public:
    explicit Recording(const Request& request)
        : m_filter("record", request.arguments.mid(1), QString()), m_isWhole(request.arguments.size() == 1),
          m_takesCalls(request.others.contains("calls")),
          m_rotation{static_cast<std::uint64_t>(numberOption(request, "rotate", 0, true)),
                     static_cast<int>(numberOption(request, "keep", 0))} {
        if (m_rotation.keep > 0 && m_rotation.size == 0)
            throw Failure{Usage, "cannot keep some files: there is only one without --rotate"};
        if (m_takesCalls && m_isWhole)
            throw Failure{Usage, "cannot add calls: without names of events everything is recorded"};
    }

    bool isWhole() const { return m_isWhole; }
    const recording::Writer& file() const { return *m_file; }
    quint64 missing() const { return m_gaps.missing(); }

    // The monitor first: a file is made only when there is something to be recorded.
    void begin(const Request& request) {
        m_monitor = std::make_unique<recording::Monitor>(request.address.toStdString(), rules());
        m_file = std::make_unique<recording::Writer>(
            request.arguments.first().toLocal8Bit().toStdString(), m_rotation, [this](recording::Writer& file) {
                m_traffic.writeNames([&](std::string_view message) { file.add(m_time, message); });
            });
    }

    // Until a signal, the end of the limit, or that of the connection, which makes it false.
    bool run(const TimeLimit& limit) {
        constexpr int keptMs = 100; // so long what was taken may stay in memory
        const Ending ending;
        QDeadlineTimer nextFlush(keptMs, Qt::PreciseTimer);
        while (!limit.hasPassed()) {
            pollfd looked[] = {{m_monitor->descriptor(), POLLIN, 0}, {ending.descriptor(), POLLIN, 0}};
            const qint64 rest = std::min(limit.end(), nextFlush).remainingTime();
            poll(looked, 2, static_cast<int>(std::max<qint64>(rest, 1)));
            if (looked[0].revents && !take())
                return false;
            if (looked[1].revents)
                break;
            if (nextFlush.hasExpired()) {
                if (!m_file->flush() && m_file->path() == "-")
                    break; // its reader has gone
                nextFlush.setRemainingTime(keptMs, Qt::PreciseTimer);
            }
        }
        // What passed before the end was asked for is in the bus's hands, or on its way here.
        return take();
    }

    void end() { (void)m_file->flush(); }

private:
    std::vector<std::string> rules() const {
        std::vector<std::string> rules;
        if (m_isWhole)
            return rules;
        for (const QString& rule : m_filter.rules())
            rules.push_back(rule.toStdString());
        if (m_takesCalls)
            rules.insert(rules.end(), {"type='method_call'", "type='method_return'", "type='error'"});
        return rules;
    }

    bool take() {
        m_time = now();
        return m_monitor->read([this](std::string_view message) {
            Header header;
            if (!readHeader(message, header))
                return;
            if (m_isWhole)
                m_gaps.take(header);
            else if (recording::isEvent(header) && !m_filter.matches(textOf(header.member), textOf(header.path)))
                return;
            if (m_rotation.size > 0)
                (void)m_traffic.take(header, message, m_time);
            m_file->add(m_time, message);
        });
    }

    const EventFilter m_filter;
    const bool m_isWhole;
    const bool m_takesCalls;
    const recording::Rotation m_rotation;
    std::unique_ptr<recording::Monitor> m_monitor;
    std::unique_ptr<recording::Writer> m_file;
    recording::Traffic m_traffic; // who is there, for files that begin later
    Gaps m_gaps;
    Time m_time = 0;
};

QString lossText(const Recording& recording) {
    const auto& counts = recording.file().counts();
    QStringList texts;
    if (!recording.isWhole())
        texts += "whether the bus dropped any cannot be seen when events are chosen";
    else if (recording.missing() > 0)
        texts += QString("the bus dropped %1 for want of room").arg(recording.missing());
    if (counts.lost > 0)
        texts += QString("%1 could not be written: %2").arg(counts.lost).arg(QString::fromStdString(counts.reason));
    return texts.isEmpty() ? QString("nothing is missing") : texts.join("; ");
}

void tell(const Request& request, const Recording& recording) {
    const auto& counts = recording.file().counts();
    if (request.json && request.arguments.first() != "-") {
        const QJsonValue dropped = recording.isWhole() ? QJsonValue(double(recording.missing())) : QJsonValue();
        return printLine(QJsonObject{{"messages", double(counts.messages)},
                                     {"bytes", double(counts.bytes)},
                                     {"files", counts.files},
                                     {"dropped", dropped},
                                     {"unwritten", double(counts.lost)},
                                     {"reason", QString::fromStdString(counts.reason)}});
    }
    printMessage(
        QString("recorded %1 messages, %2; %3").arg(counts.messages).arg(sizeText(counts.bytes), lossText(recording)));
}

} // namespace

int runRecord(const Request& request) {
    const QString& file = request.arguments.first();
    Recording recording(request);
    try {
        recording.begin(request);
    } catch (const recording::Error& error) {
        throw Failure{Failed, QString("cannot record into '%1': %2; nothing was recorded").arg(file, error.what())};
    }
    printMessage(QString("recording %1 into '%2'")
                     .arg(request.arguments.size() > 1 ? request.arguments.mid(1).join(", ") : "everything",
                          QString::fromStdString(recording.file().path())));
    const bool isWhole = recording.run(request.limit);
    recording.end();
    tell(request, recording);
    if (!isWhole)
        throw Failure{NoBus, "cannot go on recording: the bus has ended the connection"};
    return recording.file().counts().lost + recording.missing() > 0 ? Failed : Ok;
}

} // namespace velctl
