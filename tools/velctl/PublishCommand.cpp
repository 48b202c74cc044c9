// velctl publish: an event from the command line, or events from the lines of `velctl watch --json`.
#include "Bus.h"
#include "Commands.h"
#include "Event.h"
#include "ModuleNames.h"
#include "Output.h"
#include "Subscribers.h"

#include "wire/Text.h"

#include <QJsonDocument>

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace velctl {

namespace {

[[noreturn]] void refuse(const QString& argument, const QString& reason) {
    throw Failure{Usage,
                  QString("cannot publish '%1': %2; right is NAME=VALUE or NAME:=TYPE:VALUE").arg(argument, reason)};
}

// NAME=VALUE or NAME:=TYPE:VALUE
wire::EventArgument argumentOf(const QString& text) {
    const int equals = text.indexOf('=');
    if (equals < 0)
        refuse(text, "there is no '=' in it");
    const bool isTyped = equals > 0 && text.at(equals - 1) == ':';
    const QString name = text.left(isTyped ? equals - 1 : equals);
    const QString written = text.mid(equals + 1);
    if (name.isEmpty())
        refuse(text, "it has no name");
    if (!isTyped)
        return {name, wire::typeByForm(written), [written](wire::Appender& to) { wire::appendByForm(to, written); }};
    const int colon = written.indexOf(':');
    if (colon < 0)
        refuse(text, "there is no type before a ':'");
    const QByteArray type = wire::typeByName(written.left(colon));
    if (type.isEmpty())
        refuse(text, QString("there is no type '%1', there are %2").arg(written.left(colon), wire::knownTypeNames()));
    return {name, type,
            [type, value = written.mid(colon + 1)](wire::Appender& to) { wire::appendByType(to, type, value); }};
}

// The arguments' mistakes are told with the argument.
std::vector<wire::EventArgument> argumentsOf(const QStringList& texts) {
    std::vector<wire::EventArgument> arguments;
    for (const QString& text : texts) {
        try {
            wire::EventArgument argument = argumentOf(text);
            for (const wire::EventArgument& earlier : arguments) {
                if (earlier.name == argument.name)
                    refuse(text, QString("'%1' is given twice").arg(argument.name));
            }
            argument.append = [text, append = argument.append](wire::Appender& to) {
                try {
                    append(to);
                } catch (const wire::Error& error) {
                    refuse(text, error.reason);
                }
            };
            arguments.push_back(std::move(argument));
        } catch (const wire::Error& error) {
            refuse(text, error.reason);
        }
    }
    return arguments;
}

int publishOne(const Request& request) {
    const QString name = request.arguments.first();
    requireValidName("publish", "an event", name);
    requireValidName("publish as", "a module", request.publisher);
    wire::Message event;
    try {
        event = wire::makeEvent(request.publisher, name, request.context, argumentsOf(request.arguments.mid(1)));
    } catch (const wire::Error& error) {
        refuse(name, error.reason);
    }
    Bus bus(request.limit, request.address);
    const bool isHeard = mayBeHeard(bus, event.get());
    bus.publish(event.get());
    if (!isHeard)
        throw Failure{Unknown, QString("cannot reach anybody with '%1': nobody has subscribed that event; it was "
                                       "published all the same")
                                   .arg(name)};
    return Ok;
}

// The lines of standard input, read only when it has some: the time limit and the bus's end are seen all the while.
class InputLines {
public:
    explicit InputLines(Bus& bus) : m_bus(bus) {}

    bool next(QByteArray& line) {
        int end = -1;
        while ((end = m_text.indexOf('\n', m_looked)) < 0 && !m_isAtEnd) {
            m_looked = m_text.size();
            read();
        }
        if (m_text.isEmpty())
            return false;
        line = end < 0 ? m_text : m_text.left(end);
        m_text.remove(0, line.size() + (end < 0 ? 0 : 1));
        m_looked = 0;
        return true;
    }

private:
    void read() {
        constexpr int longestLine = 512 << 20; // bytes: four times the longest message
        if (!m_bus.waitForInput(STDIN_FILENO, m_bus.limit().end()))
            throw Failure{TimeLimitReached,
                          QString("cannot read standard input to its end: the rest did not come within %1; what came "
                                  "is published")
                              .arg(m_bus.limit().text())};
        QByteArray piece(64 * 1024, Qt::Uninitialized);
        const ssize_t count = ::read(STDIN_FILENO, piece.data(), static_cast<size_t>(piece.size()));
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            return;
        if (count < 0)
            throw Failure{Failed,
                          QString("cannot read standard input: %1").arg(QString::fromLocal8Bit(std::strerror(errno)))};
        m_isAtEnd = count == 0;
        m_text += piece.left(static_cast<int>(count));
        if (m_text.size() > longestLine)
            throw wire::Error("it is longer than any event can be");
    }

    Bus& m_bus;
    QByteArray m_text; // read, and not yet taken
    int m_looked = 0;  // of it, for the end of a line
    bool m_isAtEnd = false;
};

wire::Message eventOf(const QByteArray& line, const QString& publisher) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError)
        throw wire::Error(error.errorString());
    if (!document.isObject())
        throw wire::Error("it is no JSON object");
    return wire::eventFromJson(document.object(), publisher);
}

int publishLines(const Request& request) {
    requireValidName("publish as", "a module", request.publisher);
    Bus bus(request.limit, request.address);
    InputLines lines(bus);
    int number = 1;
    try {
        for (QByteArray line; lines.next(line); ++number) {
            if (!line.trimmed().isEmpty())
                bus.publish(eventOf(line.trimmed(), request.publisher).get());
        }
    } catch (const wire::Error& error) {
        throw Failure{
            Failed,
            QString("cannot publish line %1: %2; what stands before it is published").arg(number).arg(error.reason)};
    }
    return Ok;
}

} // namespace

int runPublish(const Request& request) {
    const bool readsInput = request.arguments == QStringList("-");
    if (readsInput && request.json)
        return publishLines(request);
    if (readsInput)
        throw Failure{Usage, "cannot publish '-': standard input is read as JSON; right is: velctl publish --json -"};
    return publishOne(request);
}

} // namespace velctl
