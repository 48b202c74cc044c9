// What the program writes: lines, tables with colours, and JSON on standard output, messages on standard error.
#include "Output.h"

#include "Status.h"

#include "wire/Json.h"
#include "wire/Printable.h"

#include <QJsonDocument>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velctl {

namespace {

constexpr int littleKept = 1 << 20; // bytes that a long text keeps before it waits
constexpr int muchKept = 4 << 20;   // bytes from which on lines of a stream are counted instead

// A descriptor that is written without waiting. O_NONBLOCK belongs to what was opened, which the shell and other
// programs share; so a terminal or a pipe is opened once more. A file never makes one wait, and is not opened again:
// it would be written from its beginning.
class Stream {
public:
    explicit Stream(int descriptor) : m_descriptor(descriptor) {
        struct stat status {};
        fstat(descriptor, &status);
        m_isSocket = S_ISSOCK(status.st_mode);
        if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode))
            return;
        const QByteArray name = "/proc/self/fd/" + QByteArray::number(descriptor);
        const int again = open(name.constData(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (again >= 0)
            m_descriptor = again;
        else
            m_mayBlock = true;
    }

    void add(const QByteArray& text) {
        if (m_error != 0)
            return;
        m_kept += text;
        write();
    }

    void write() {
        while (m_error == 0 && m_written < m_kept.size()) {
            const ssize_t count = writeOnce(m_kept.constData() + m_written, m_kept.size() - m_written);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                break;
            if (count < 0)
                m_error = errno;
            else if (count == 0)
                break;
            else
                m_written += static_cast<int>(count);
        }
        // What has gone out is cut off rarely: each cut moves the rest.
        if (m_written == m_kept.size() || m_written > littleKept) {
            m_kept.remove(0, m_written);
            m_written = 0;
        }
    }

    int kept() const { return m_error == 0 ? m_kept.size() - m_written : 0; }
    int error() const { return m_error; }
    pollfd wanted() const {
        return {m_error == 0 && !m_isGone ? m_descriptor : -1, short(kept() > 0 ? POLLOUT : 0), 0};
    }
    void looked(const pollfd& seen) {
        if ((seen.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
            m_isGone = true; // poll() would say so again and again
            write();
        }
    }
    bool isGone() const { return m_isGone; }
    void giveUp() { m_error = ECANCELED; }

private:
    ssize_t writeOnce(const char* bytes, int count) const {
        const auto size = static_cast<size_t>(count);
        if (m_isSocket)
            return send(m_descriptor, bytes, size, MSG_DONTWAIT);
        if (!m_mayBlock)
            return ::write(m_descriptor, bytes, size);
        pollfd room{m_descriptor, POLLOUT, 0};
        if (poll(&room, 1, 0) == 0)
            return 0;
        return ::write(m_descriptor, bytes, std::min<size_t>(size, 256)); // what poll() promises a terminal's room for
    }

    int m_descriptor;
    bool m_isSocket = false;
    bool m_isGone = false;   // its reader is
    bool m_mayBlock = false; // it belongs to somebody else, who lets it be used and not be opened
    QByteArray m_kept;
    int m_written = 0; // of what is kept
    int m_error = 0;
};

Stream& out() {
    static Stream stream(STDOUT_FILENO);
    return stream;
}

Stream& err() {
    static Stream stream(STDERR_FILENO);
    return stream;
}

bool& isJson() {
    static bool answer = false;
    return answer;
}

void mustBeWhole() {
    if (out().error() != 0 && out().error() != ECANCELED) {
        const QString reason = QString::fromLocal8Bit(std::strerror(out().error()));
        Output::giveUp();
        throw Failure{Failed, "cannot write the output: standard output does not take it: " + reason};
    }
}

void put(const QByteArray& text) {
    out().add(text);
    mustBeWhole();
}

bool hasColours() {
    static const bool answer =
        isatty(STDOUT_FILENO) && qEnvironmentVariableIsEmpty("NO_COLOR") && qgetenv("TERM") != "dumb";
    return answer;
}

const char* codeOf(Colour colour) {
    switch (colour) {
    case Colour::None:
        return "";
    case Colour::Bold:
        return "1";
    case Colour::Grey:
        return "90";
    case Colour::Red:
        return "31";
    case Colour::Green:
        return "32";
    case Colour::Yellow:
        return "33";
    case Colour::Cyan:
        return "36";
    }
    return "";
}

// The text is safe: it holds no command to the terminal but this one.
QString painted(const Cell& cell, const QString& text) {
    return cell.colour == Colour::None || !hasColours() ? text
                                                        : QString("\033[%1m%2\033[0m").arg(codeOf(cell.colour), text);
}

QByteArray lateWords; // for a signal handler, which may not make anything

QByteArray failureLine(const QString& text, int status) {
    if (!isJson())
        return "velctl: " + wire::printable(text).toUtf8() + '\n';
    return R"({"error":)" + wire::jsonString(text) + R"(,"status":)" + QByteArray::number(status) + "}\n";
}

} // namespace

void printLine(const QString& line) {
    put(wire::printable(line).toUtf8() + '\n');
}

void printPart(const Row& cells) {
    QString line;
    for (const Cell& cell : cells)
        line += painted(cell, wire::printable(cell.text));
    put(line.toUtf8());
}

void printLine(const Row& cells) {
    printPart(cells);
    put("\n");
}

void printLine(const QJsonObject& json) {
    put(wire::printable(QJsonDocument(json).toJson(QJsonDocument::Compact)) + '\n');
}

void printTable(const QVector<Row>& rows) {
    QVector<QVector<QString>> texts;
    QVector<int> widths;
    for (const Row& row : rows) {
        QVector<QString> safe;
        widths.resize(std::max(widths.size(), row.size()));
        for (const Cell& cell : row) {
            safe += wire::printable(cell.text);
            int& width = widths[safe.size() - 1];
            width = std::max<int>(width, safe.last().size());
        }
        texts += safe;
    }
    for (int number = 0; number < rows.size(); ++number) {
        const Row& row = rows.at(number);
        QString line;
        QString gap; // written before the next text only: no line ends in blanks
        for (int column = 0; column < row.size(); ++column) {
            const QString& text = texts.at(number).at(column);
            const QString padding(widths.at(column) - text.size(), QLatin1Char(' '));
            if (row.at(column).isNumber)
                gap += padding;
            if (!text.isEmpty()) {
                line += gap + painted(row.at(column), text);
                gap.clear();
            }
            if (!row.at(column).isNumber)
                gap += padding;
            gap += "  ";
        }
        put(line.toUtf8() + '\n');
    }
}

void printMessage(const QString& text) {
    if (isJson())
        err().add(R"({"message":)" + wire::jsonString(text) + "}\n");
    else
        err().add("velctl: " + wire::printable(text).toUtf8() + '\n');
}

void printFailure(const QString& text, int status) {
    err().add(failureLine(text, status));
}

void Output::useJson() {
    isJson() = true;
}

void Output::writePiece(const QByteArray& piece, const TimeLimit& limit) {
    put(piece);
    while (out().kept() > littleKept) {
        QVector<pollfd> room = wanted();
        const qint64 rest = limit.end().remainingTime();
        if (limit.hasPassed()) {
            giveUp();
            throw Failure{TimeLimitReached, QString("cannot write the output: standard output has not taken it all "
                                                    "within %1; the rest is missing")
                                                .arg(limit.text())};
        }
        poll(room.data(), static_cast<nfds_t>(room.size()),
             rest < 0 ? -1 : static_cast<int>(std::min<qint64>(rest + 1, INT_MAX)));
        writeKept(room);
    }
}

void Output::writeWhole(const QByteArray& lines) {
    put(lines);
}

bool Output::isFull() {
    return out().kept() > muchKept;
}

QVector<pollfd> Output::wanted() {
    return {out().wanted(), err().wanted()};
}

void Output::writeKept(const QVector<pollfd>& seen) {
    out().looked(seen.at(0));
    err().looked(seen.at(1));
    out().write();
    err().write();
    mustBeWhole();
}

bool Output::hasReader() {
    return !out().isGone();
}

void Output::endWithoutReader() {
    std::raise(SIGPIPE);
    throw Failure{Failed, "cannot write the output: nobody reads standard output any more"};
}

bool Output::finish(const QDeadlineTimer& end) {
    while (out().kept() + err().kept() > 0) {
        const qint64 rest = end.remainingTime();
        if (rest == 0)
            return false;
        QVector<pollfd> room = wanted();
        poll(room.data(), static_cast<nfds_t>(room.size()),
             rest < 0 ? -1 : static_cast<int>(std::min<qint64>(rest, INT_MAX)));
        writeKept(room);
    }
    return true;
}

void Output::giveUp() {
    out().giveUp();
}

void Output::prepareToBeLate(const QString& text, int status) {
    lateWords = failureLine(text, status);
}

void Output::sayLate() {
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    if (poll(&room, 1, 0) == 1 &&
        write(STDERR_FILENO, lateWords.constData(), static_cast<size_t>(lateWords.size())) < 0)
        _exit(Failed);
}

QString memoryText(qint64 bytes) {
    return bytes > 0 ? QString("%1 MB").arg(double(bytes) / (1024 * 1024), 0, 'f', 1) : QStringLiteral("-");
}

QString durationText(qint64 seconds) {
    constexpr int minute = 60;
    constexpr int hour = 60 * minute;
    constexpr int day = 24 * hour;
    if (seconds < 0)
        return "-";
    const auto two = [](qint64 number) { return QString("%1").arg(number, 2, 10, QLatin1Char('0')); };
    if (seconds >= day)
        return QString("%1 d %2 h").arg(seconds / day).arg(two(seconds % day / hour));
    if (seconds >= hour)
        return QString("%1 h %2 min").arg(seconds / hour).arg(two(seconds % hour / minute));
    if (seconds >= minute)
        return QString("%1 min %2 s").arg(seconds / minute).arg(two(seconds % minute));
    return QString("%1 s").arg(seconds);
}

} // namespace velctl
