// The time that one command may take.
//
// Everything that waits does so in Bus::waitUntil() or in Output, and both ask here how long they still may. What
// cannot be asked, such as a file system that hangs or a text that takes long to be read, is met by a timer of the
// kernel's: it ends the process when the limit and most of a tenth have passed, wherever the program is.
// A short limit gets 0.3 s instead: less would be over before a loaded machine lets the program run at all. So a command
// ends within its limit and a tenth when the limit is 3 s or more, and within 0.3 s more when it is shorter.
#pragma once

#include <QDeadlineTimer>
#include <QString>

namespace velctl {

class TimeLimit {
public:
    /// Starts the clock, and the kernel's timer; once in the life of the process. 0 means no limit.
    static TimeLimit start(double seconds);

    bool isUnlimited() const { return m_milliseconds == 0; }
    bool hasPassed() const { return m_deadline.hasExpired(); }

    /// The end of the limit, and a little later: for what is still to be found out and to be written then.
    const QDeadlineTimer& end() const { return m_deadline; }
    QDeadlineTimer lastMoment() const;

    /// Until when to wait for a sign of life of modules of which some may not answer: a second at most, and short of
    /// the whole limit, so that there is time to say so.
    QDeadlineTimer forSignsOfLife() const;

    /// The same for an answer that may take the whole time but for what is needed to say that it did not come.
    QDeadlineTimer forAnswers() const;

    /// "5 s", for texts.
    QString text() const;

private:
    QDeadlineTimer part(int tenths) const;

    QDeadlineTimer m_deadline{QDeadlineTimer::Forever};
    qint64 m_milliseconds = 0;
};

} // namespace velctl
