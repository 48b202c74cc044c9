// velctl trace: a recording as a trace, in the JSON that Perfetto's and Chrome's viewers open.
//
// A module is a process there, with its calls as asynchronous slices from call to answer, its events as instants, and a
// slice for the time in which it has its name. Arguments stand with each message, as JSON texts.
#include "Commands.h"
#include "Event.h"
#include "Output.h"
#include "Recordings.h"

#include "wire/Json.h"
#include "wire/Text.h"

#include <QSet>

namespace velctl {

namespace {

using recording::Reader;
using recording::Seen;
using recording::Time;

constexpr int longestArguments = 4096; // a viewer shows no more, and files stay within reason

QByteArray argumentsOf(const Reader::Packet& packet) {
    QByteArray text;
    try {
        const wire::Message message =
            wire::fromBytes(QByteArray::fromRawData(packet.message.data(), static_cast<int>(packet.message.size())));
        DBusMessageIter value;
        if (!dbus_message_iter_init(message.get(), &value))
            return text;
        do {
            wire::writeText(&value, [&text](const QByteArray& piece) {
                if (text.size() <= longestArguments)
                    text += piece;
            });
            text += ' ';
        } while (text.size() <= longestArguments && dbus_message_iter_next(&value));
    } catch (const wire::Error& error) {
        return ("not readable: " + error.reason).toUtf8();
    }
    text.chop(text.endsWith(' ') ? 1 : 0);
    if (text.size() > longestArguments) // not within a character
        text =
            QString::fromUtf8(text.left(longestArguments)).remove(QChar(QChar::ReplacementCharacter)).toUtf8() + "...";
    return text;
}

class Trace {
public:
    explicit Trace(const Request& request) : m_request(request) {
        Output::writePiece("{\"traceEvents\":[", request.limit);
    }

    void take(const Reader::Packet& packet) {
        const Seen seen = m_traffic.take(packet.header, packet.message, packet.time);
        if (!m_hasBegun)
            m_begin = packet.time;
        m_hasBegun = true;
        m_end = std::max(m_end, packet.time);
        switch (seen.kind) {
        case Seen::Event:
            write(packet.time, seen.from, "i", "event", nameOf(seen.name),
                  ",\"s\":\"p\",\"args\":{\"event\":" + wire::jsonString(argumentsOf(packet)) + '}');
            return;
        case Seen::Call:
            if (seen.call)
                seen.call->tag = ++m_number;
            write(packet.time, seen.from, seen.call ? "b" : "i", "call", callName(seen.to, seen.name),
                  idOf(seen.call) + ",\"args\":{\"call\":" + wire::jsonString(argumentsOf(packet)) + '}');
            return;
        case Seen::Answer:
        case Seen::Error:
            write(packet.time, seen.to, "e", "call", callName(seen.from, seen.name),
                  idOf(seen.call) + ",\"args\":{\"" + (seen.kind == Seen::Error ? "error" : "answer") +
                      "\":" + wire::jsonString(argumentsOf(packet)) + '}');
            return;
        case Seen::Other:
            return;
        }
    }

    void finish() {
        // What was never answered is open until the end.
        m_traffic.forEachOpen([this](const recording::OpenCall& call) {
            if (call.tag > 0)
                write(m_end, call.caller, "e", "call", callName(call.callee, call.method),
                      idOf(&call) + ",\"args\":{\"unanswered\":true}");
        });
        for (const recording::Life& life : m_traffic.lives()) {
            if (!m_traffic.isModule(life.participant))
                continue;
            const Time begin = std::max(life.begin, m_begin);
            const Time end = life.end == 0 ? m_end : life.end;
            write(begin, life.participant, "X", "life", "on the bus", ",\"dur\":" + microseconds(end - begin));
        }
        for (const int participant : qAsConst(m_shown))
            write(m_begin, participant, "M", "", "process_name",
                  ",\"args\":{\"name\":" +
                      wire::jsonString(QByteArray::fromStdString(m_traffic.participant(participant))) + '}');
        Output::writePiece("\n],\"displayTimeUnit\":\"ms\"}\n", m_request.limit);
    }

private:
    QByteArray nameOf(int name) const { return QByteArray::fromStdString(m_traffic.name(name)); }
    QByteArray callName(int callee, int method) const {
        return QByteArray::fromStdString(m_traffic.participant(callee)) + '.' + nameOf(method);
    }
    static QByteArray idOf(const recording::OpenCall* call) {
        return call ? ",\"id\":" + QByteArray::number(qint64(call->tag)) : QByteArray(",\"s\":\"p\"");
    }
    static QByteArray microseconds(Time time) { return QByteArray::number(double(time) / 1000, 'f', 3); }

    void write(Time time, int participant, const char* phase, const char* category, const QByteArray& name,
               const QByteArray& rest) {
        m_shown.insert(participant);
        const QByteArray process = QByteArray::number(participant + 1);
        Output::writePiece((m_written++ ? ",\n" : "\n") + QByteArray("{\"ph\":\"") + phase + "\",\"cat\":\"" +
                               category + "\",\"name\":" + wire::jsonString(name) +
                               ",\"ts\":" + microseconds(time - m_begin) + ",\"pid\":" + process +
                               ",\"tid\":" + process + rest + '}',
                           m_request.limit);
    }

    const Request& m_request;
    recording::Traffic m_traffic;
    bool m_hasBegun = false;
    Time m_begin = 0;
    Time m_end = 0;
    qint64 m_number = 0;
    quint64 m_written = 0;
    QSet<int> m_shown;
};

} // namespace

int runTrace(const Request& request) {
    Trace trace(request);
    readRecording(request, "show", [&](const Reader::Packet& packet) {
        trace.take(packet);
        return true;
    });
    trace.finish();
    return Ok;
}

} // namespace velctl
