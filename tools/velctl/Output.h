// What the program writes: lines, tables with colours, and JSON on standard output, messages on standard error.
//
// Nothing else writes. So what a stranger wrote is made safe here, whatever it stands in; and nobody waits for a
// reader without end: what a terminal or a pipe does not take at once is kept, and goes out while the program waits
// for something else, or at its end. A terminal that was stopped, or a reader that sleeps, costs the time limit at
// most; a disk that is full ends the command at once.
// A reader that has gone ends it as it ends other programs: silently, by SIGPIPE, or with the reason where somebody told
// the process to ignore that signal.
#pragma once

#include "TimeLimit.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QVector>

#include <poll.h>

namespace velctl {

enum class Colour { None, Bold, Grey, Red, Green, Yellow, Cyan };

/// A text in a colour, which it has on a terminal only.
struct Cell {
    Cell(const QString& cellText, Colour cellColour = Colour::None, bool right = false)
        : text(cellText), colour(cellColour), isNumber(right) {}
    QString text;
    Colour colour;
    bool isNumber; ///< aligned right
};

using Row = QVector<Cell>;

/// Writes a line to standard output: of text, of cells one after the other, or an object as JSON.
/// Throws a Failure when standard output has an error. Does not wait.
void printLine(const QString& line);
void printLine(const Row& cells);
void printLine(const QJsonObject& json);

/// Writes cells without ending the line.
void printPart(const Row& cells);

/// Writes the rows, each column as wide as its widest cell.
void printTable(const QVector<Row>& rows);

/// Writes a message for people to standard error; with --json, as an object {"message": ...}.
void printMessage(const QString& text);

/// Writes how the command failed: as a message, or with --json as an object {"error": ..., "status": ...}.
void printFailure(const QString& text, int status);

class Output {
public:
    /// Messages and failures are JSON from now on.
    static void useJson();

    /// Writes a piece of a long text, which has to be safe already. Waits while more is kept than a little, until
    /// `end` at most, and throws a Failure then.
    static void writePiece(const QByteArray& piece, const TimeLimit& limit);

    /// Writes lines that are safe already. Throws and waits like printLine().
    static void writeWhole(const QByteArray& lines);

    /// Whether so much is kept that lines of a stream should rather be counted than be added.
    static bool isFull();

    /// What poll() is to look at, so that what is kept can go out; and what goes out now, after poll() has looked.
    /// Throws like printLine().
    static QVector<pollfd> wanted();
    static void writeKept(const QVector<pollfd>& seen);

    /// False when poll() has seen that nobody can read standard output any more.
    static bool hasReader();

    /// Ends the command as writing to a pipe without a reader would.
    [[noreturn]] static void endWithoutReader();

    /// Waits until all has gone out, or `end`; true when it has.
    [[nodiscard]] static bool finish(const QDeadlineTimer& end);

    /// Standard output is given up: nothing is written to it any more.
    static void giveUp();

    /// Prepares the words with which a signal handler may end the process later, and says them, if standard error
    /// takes them.
    static void prepareToBeLate(const QString& text, int status);
    static void sayLate();
};

/// "12.3 MB" and "2 h 03 min", for tables.
QString memoryText(qint64 bytes);
QString durationText(qint64 seconds);

} // namespace velctl
