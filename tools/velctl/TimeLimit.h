// The time that one command may take, and the guard that holds it against calls that know no limit.
//
// Everything that waits asks here how long it still may. That leaves the first contact with a bus daemon that
// does not answer, and input that does not come: neither can be told to give up. A guard ends the process
// from a thread of its own there. Only there: on a loaded machine a guard for everything would end commands
// that are just about to say what is wrong.
#pragma once

#include <QDeadlineTimer>
#include <QString>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace velctl {

class TimeLimit {
public:
    /// Starts the clock. 0 means no limit for the command; each single call to the bus has one
    /// then.
    static TimeLimit start(double seconds);

    bool isUnlimited() const { return m_milliseconds == 0; }
    bool hasPassed() const { return !isUnlimited() && m_deadline.hasExpired(); }

    /// How long one call may still take, in milliseconds; at least 1, for 0 has a meaning of its own to Qt.
    int forOneCall() const;

    /// The same for a question to the bus daemon, which answers at once unless it is stopped: a little more
    /// than nothing also at the very end, so that the reason for the end can still be found out.
    int forBusDaemon() const;

    /// How long to wait for a sign of life of modules of which some may not answer: short of the whole limit,
    /// so that there is time to say so.
    int forSignsOfLife() const;

    /// Runs the event loop until the condition holds. False when the limit passed first.
    [[nodiscard]] bool waitUntil(const std::function<bool()>& condition) const;

    /// "5 s", for texts.
    QString text() const;

    /// While this lives, the process ends with TimeLimitReached and that text when the limit has passed.
    class Guard {
    public:
        Guard(const TimeLimit& limit, const QString& text);
        ~Guard();

    private:
        std::mutex m_mutex;
        std::condition_variable m_change;
        bool m_isOver = false;
        std::thread m_thread;
        Q_DISABLE_COPY(Guard)
    };

private:
    QDeadlineTimer m_deadline{QDeadlineTimer::Forever};
    int m_milliseconds = 0;
};

} // namespace velctl
