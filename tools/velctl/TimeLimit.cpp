// The time that one command may take, and the guard that holds it against calls that know no limit.
#include "TimeLimit.h"

#include "Failure.h"

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <limits>
#include <unistd.h>

namespace velctl {

namespace {

constexpr int callLimitWithoutLimitMs = 5000;
constexpr int signOfLifeMs = 1000; // a module whose event loop is away for longer is called unresponsive
constexpr int pollMs = 50;         // for conditions that no signal announces, such as a process's state
constexpr int lastWords = 20;      // the part of the limit, one in so many, for finding out a reason at its end

} // namespace

TimeLimit TimeLimit::start(double seconds) {
    TimeLimit limit;
    if (seconds <= 0)
        return limit;
    // A day more or less: beyond that the number would not fit.
    limit.m_milliseconds = static_cast<int>(std::min(seconds * 1000, double(std::numeric_limits<int>::max() / 2)));
    limit.m_milliseconds = std::max(limit.m_milliseconds, 1);
    limit.m_deadline = QDeadlineTimer(limit.m_milliseconds, Qt::PreciseTimer);
    return limit;
}

int TimeLimit::forOneCall() const {
    if (isUnlimited())
        return callLimitWithoutLimitMs;
    return std::max(1, static_cast<int>(m_deadline.remainingTime()));
}

int TimeLimit::forBusDaemon() const {
    return std::max(forOneCall(), m_milliseconds / lastWords);
}

int TimeLimit::forSignsOfLife() const {
    return std::max(1, std::min(signOfLifeMs, forOneCall() * 8 / 10));
}

bool TimeLimit::waitUntil(const std::function<bool()>& condition) const {
    QTimer wakeUp;
    wakeUp.setTimerType(Qt::PreciseTimer);
    while (!condition()) {
        if (hasPassed())
            return false;
        wakeUp.start(std::min(pollMs, forOneCall()));
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

TimeLimit::Guard::Guard(const TimeLimit& limit, const QString& text) {
    if (limit.isUnlimited())
        return;
    const auto rest = std::chrono::milliseconds(limit.forBusDaemon());
    m_thread = std::thread([this, rest, line = ("velctl: " + text + '\n').toUtf8()] {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_change.wait_for(lock, rest, [this] { return m_isOver; }))
            return;
        // Not exit(): nothing may wait for the main thread, which will not come back.
        const bool isSaid = write(STDERR_FILENO, line.constData(), static_cast<size_t>(line.size())) > 0;
        _exit(isSaid ? TimeLimitReached : Failed);
    });
}

TimeLimit::Guard::~Guard() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isOver = true;
    }
    m_change.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

QString TimeLimit::text() const {
    return QStringLiteral("%1 s").arg(m_milliseconds / 1000.0);
}

} // namespace velctl
