// What a person reads: the lines of the demo, each with its time and its speaker.
#pragma once

#include <QElapsedTimer>
#include <QString>

class Timeline {
public:
    enum class Tone { Plain, Faint, Bold, Good, Doubtful, Bad };

    /// Starts the clock.
    Timeline();

    void heading(const QString& title);

    /// Something happened now.
    void event(const QString& who, const QString& what, Tone tone = Tone::Plain);

    /// A line without a time.
    void text(const QString& line, Tone tone = Tone::Plain);

    /// Seconds since the start, with milliseconds.
    QString now() const;

private:
    QString toned(const QString& text, Tone tone) const;

    QElapsedTimer m_clock;
    bool m_hasColours;
};
