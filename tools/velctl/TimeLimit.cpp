// The time that one command may take.
#include "TimeLimit.h"

#include "Output.h"
#include "Status.h"

#include <algorithm>
#include <csignal>
#include <limits>
#include <sys/time.h>
#include <unistd.h>

namespace velctl {

namespace {

constexpr qint64 signOfLifeMs = 1000; // a module whose event loop is away for longer is called unresponsive

// What follows the end of the limit: the messages of the end in the first half, and the kernel's timer after it.
constexpr qint64 shortestMarginMs = 300;

qint64 marginAfter(qint64 limitMs) {
    return std::max(limitMs * 9 / 100, shortestMarginMs);
}

QDeadlineTimer in(qint64 milliseconds) {
    return QDeadlineTimer(milliseconds, Qt::PreciseTimer);
}

void endLate(int) {
    Output::sayLate();
    _exit(TimeLimitReached);
}

void endAfter(qint64 milliseconds) {
    std::signal(SIGALRM, endLate);
    itimerval timer{};
    timer.it_value.tv_sec = static_cast<time_t>(milliseconds / 1000);
    timer.it_value.tv_usec = static_cast<suseconds_t>(milliseconds % 1000 * 1000);
    setitimer(ITIMER_REAL, &timer, nullptr);
}

} // namespace

TimeLimit TimeLimit::start(double seconds) {
    TimeLimit limit;
    if (seconds <= 0)
        return limit;
    // Some weeks: beyond that the number would not fit.
    constexpr double longest = std::numeric_limits<int>::max() / 2;
    limit.m_milliseconds = std::max(static_cast<qint64>(std::min(seconds * 1000, longest)), qint64(1));
    limit.m_deadline = in(limit.m_milliseconds);
    Output::prepareToBeLate(
        QString("cannot go on: it is not done within %1, and what it waits for does not end").arg(limit.text()),
        TimeLimitReached);
    endAfter(limit.m_milliseconds + marginAfter(limit.m_milliseconds));
    return limit;
}

QDeadlineTimer TimeLimit::lastMoment() const {
    if (isUnlimited())
        return m_deadline;
    return in(std::max(m_deadline.remainingTime(), qint64(0)) + marginAfter(m_milliseconds) / 2);
}

QDeadlineTimer TimeLimit::part(int tenths) const {
    return isUnlimited() ? m_deadline : in(std::max(qint64(1), m_deadline.remainingTime() * tenths / 10));
}

QDeadlineTimer TimeLimit::forSignsOfLife() const {
    return std::min(part(8), in(signOfLifeMs));
}

QDeadlineTimer TimeLimit::forAnswers() const {
    return part(9);
}

QString TimeLimit::text() const {
    return QString("%1 s").arg(static_cast<double>(m_milliseconds) / 1000);
}

} // namespace velctl
