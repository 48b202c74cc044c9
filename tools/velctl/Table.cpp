// Output for people: aligned columns, and colours where there is a terminal that shows them.
#include "Table.h"

#include <QJsonDocument>
#include <QtGlobal>

#include <cstdio>
#include <unistd.h>

namespace velctl {

namespace {

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

void write(FILE* stream, const QByteArray& line) {
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stream);
    std::fputc('\n', stream);
    std::fflush(stream);
}

} // namespace

QString paint(Colour colour, const QString& text) {
    if (colour == Colour::None || !hasColours())
        return text;
    return QString("\033[%1m%2\033[0m").arg(codeOf(colour), text);
}

void printTable(const QVector<Row>& rows) {
    QVector<int> widths;
    for (const Row& row : rows) {
        widths.resize(qMax(widths.size(), row.size()));
        for (int column = 0; column < row.size(); ++column)
            widths[column] = qMax(widths.at(column), row.at(column).text.size());
    }
    for (const Row& row : rows) {
        QString line;
        QString gap; // written before the next text only: no line ends in blanks
        for (int column = 0; column < row.size(); ++column) {
            const Cell& cell = row.at(column);
            const QString padding(widths.at(column) - cell.text.size(), QLatin1Char(' '));
            if (cell.isNumber)
                gap += padding;
            if (!cell.text.isEmpty()) {
                line += gap + paint(cell.colour, cell.text);
                gap.clear();
            }
            if (!cell.isNumber)
                gap += padding;
            gap += "  ";
        }
        printLine(line);
    }
}

void printLine(const QString& line) {
    write(stdout, line.toUtf8());
}

void printLine(const QJsonObject& json) {
    write(stdout, QJsonDocument(json).toJson(QJsonDocument::Compact));
}

void printMessage(const QString& text) {
    write(stderr, "velctl: " + text.toUtf8());
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
