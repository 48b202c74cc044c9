// Output for people: aligned columns, and colours where there is a terminal that shows them.
#pragma once

#include <QJsonObject>
#include <QString>
#include <QVector>

namespace velctl {

enum class Colour { None, Bold, Grey, Red, Green, Yellow, Cyan };

/// The text in that colour; unchanged when standard output is no terminal, or NO_COLOR is set.
QString paint(Colour colour, const QString& text);

struct Cell {
    Cell(const QString& cellText, Colour cellColour = Colour::None, bool right = false)
        : text(cellText), colour(cellColour), isNumber(right) {}
    QString text;
    Colour colour;
    bool isNumber; ///< aligned right
};

using Row = QVector<Cell>;

/// Writes the rows, each column as wide as its widest cell.
void printTable(const QVector<Row>& rows);

/// Writes a line to standard output at once, or one object as a line of JSON.
void printLine(const QString& line);
void printLine(const QJsonObject& json);

/// Writes a message for people to standard error.
void printMessage(const QString& text);

/// "12.3 MB" and "2 h 03 min", for tables.
QString memoryText(qint64 bytes);
QString durationText(qint64 seconds);

} // namespace velctl
