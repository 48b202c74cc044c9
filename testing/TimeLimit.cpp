// The limit of one wait, by the machine's load.
#include "testing/TimeLimit.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdlib>

namespace vel::testing {

namespace {

constexpr double unloadedMs = 20000;
constexpr double mostForLoad = 3;

// Processes that want to run, for each processor: 1 and less is an idle machine. It is the kernel's mean of the last
// minute, so it is asked again whenever a limit seems to have passed.
double load() {
    double processes = 0;
    if (getloadavg(&processes, 1) != 1)
        return 1;
    return std::clamp(processes / QThread::idealThreadCount(), 1.0, mostForLoad);
}

} // namespace

double slowness() {
    const double said = qgetenv("VEL_TEST_SLOWNESS").toDouble();
    return said > 0 ? said : 1;
}

TimeLimit::TimeLimit() {
    m_timer.start();
}

qint64 TimeLimit::limitMs() const {
    const double limit = unloadedMs * slowness();
    return static_cast<qint64>(m_timer.elapsed() < limit ? limit : limit * load());
}

int TimeLimit::leftMs() const {
    return static_cast<int>(std::max<qint64>(limitMs() - m_timer.elapsed(), 0));
}

QString TimeLimit::text() const {
    return QStringLiteral("within %1 s").arg(m_timer.elapsed() / 1000);
}

bool waitUntil(const std::function<bool()>& isTrue, const TimeLimit& limit) {
    if (!QCoreApplication::instance())
        qFatal("vel::testing cannot wait without an application: make a QCoreApplication, or use runOnPrivateBus()");
    while (!isTrue()) {
        const int left = limit.leftMs();
        if (left == 0)
            return false;
        QTimer limitHasPassed;
        limitHasPassed.start(left);
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

} // namespace vel::testing
