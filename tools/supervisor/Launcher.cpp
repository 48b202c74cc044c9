// What must always hold: a module is started once. So a launcher that does not answer is ended first, and only a request
// that nobody has taken by then is carried out in another way.
//
// Waiting for the answer was preferred to a state of its own for "asked, and no process yet": the spare waits already, and
// the answer is there within a millisecond. Kills, limits and restarts need not know that there are two ways to start.
#include "Launcher.h"

#include "Guardian.h"
#include "Log.h"

#include <VelUnixSignals>

#include <QCoreApplication>
#include <QFile>
#include <QSocketNotifier>

#include <csignal>
#include <poll.h>
#include <sys/wait.h>

namespace {

constexpr int answerLimitMs = 1000;
constexpr int loadLimitMs = 10000; // until the first spare: on a slow device, from a slow disk
constexpr int shortLifeMs = 10000;
constexpr int mostShortLives = 5;

launch::LauncherProcess::Settings settingsFor(const QStringList& libraries) {
    launch::LauncherProcess::Settings settings;
    settings.program = QFile::encodeName(QCoreApplication::applicationDirPath() + "/vel-launcher").toStdString();
    for (const QString& library : libraries)
        settings.libraries.push_back(QFile::encodeName(library).toStdString());
    return settings;
}

} // namespace

Launcher::Launcher(Guardian& guardian, const QStringList& libraries)
    : m_guardian(guardian), m_process(settingsFor(libraries)) {
    if (!launch::becomeSubreaper())
        m_refusal = "this kernel gives no adopted processes";
    // After whoever knows the process that has ended.
    velOnSignals({SIGCHLD}, this,
                 [this](int) { QMetaObject::invokeMethod(this, &Launcher::collectEnded, Qt::QueuedConnection); });
    start();
}

Launcher::~Launcher() = default;

void Launcher::start() {
    if (!m_refusal.isEmpty())
        return;
    m_sinceStart.start();
    m_hasLoaded = false;
    if (!m_process.start())
        return takeEnd(qt_error_string());
    m_notifier = std::make_unique<QSocketNotifier>(m_process.socket(), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &Launcher::read);
}

pid_t Launcher::launch(launch::Request& request, int slot, QString& reason) {
    request.id = ++m_lastId;
    m_guardian.describe(slot, request.announcement, request.announce);
    QElapsedTimer waited;
    waited.start();
    if (!m_process.isRunning() || m_process.send(request) != 0) {
        reason = m_refusal.isEmpty() ? "the launcher is not ready" : m_refusal;
        return 0;
    }
    for (const int launcher = m_launchers; launcher == m_launchers && !m_taken.contains(request.id);) {
        const auto left = (m_hasLoaded ? answerLimitMs : loadLimitMs) - static_cast<int>(waited.elapsed());
        pollfd wait{m_process.socket(), POLLIN, 0};
        if (left <= 0 || poll(&wait, 1, left) == 0)
            takeEnd("does not answer");
        else
            read();
    }
    reason = m_refusal.isEmpty() ? "the launcher was replaced" : m_refusal;
    return m_taken.take(request.id);
}

QString Launcher::failureOf(pid_t process) {
    read();
    return m_failures.take(process);
}

void Launcher::read() {
    launch::Reply reply;
    bool hasEnded = false;
    while (m_process.isRunning() && m_process.next(reply, hasEnded)) {
        note(reply);
        if (hasEnded)
            break;
    }
    if (hasEnded)
        takeEnd("has ended");
}

void Launcher::note(const launch::Reply& reply) {
    m_hasLoaded = m_hasLoaded || reply.kind == launch::Reply::Ready;
    if (reply.kind == launch::Reply::Taken)
        m_taken.insert(reply.id, reply.process);
    else if (reply.kind == launch::Reply::Failed)
        m_failures.insert(reply.process, QString::fromLocal8Bit(reply.reason));
    else if (reply.kind == launch::Reply::Refused)
        m_refusal = QString::fromLocal8Bit(reply.reason);
}

void Launcher::takeEnd(const QString& how) {
    if (m_notifier) {
        m_notifier->setEnabled(false);
        m_notifier.release()->deleteLater(); // it may be the one that called
    }
    ++m_launchers;
    std::set<std::uint32_t> lost; // of which launch() finds nothing in m_taken
    for (const launch::Reply& reply : m_process.stop(lost))
        note(reply);
    m_shortLives = m_sinceStart.hasExpired(shortLifeMs) ? 1 : m_shortLives + 1;
    if (m_refusal.isEmpty() && m_shortLives >= mostShortLives)
        m_refusal = QString("the launcher ended %1 times in a row").arg(m_shortLives);
    if (!m_refusal.isEmpty())
        return logError(QString("cannot fork modules: %1; they are executed instead").arg(m_refusal));
    logWarning(QString("the launcher %1: another one takes its place").arg(how));
    start();
}

// The launcher's end is seen here, too: its spare holds the socket open.
void Launcher::collectEnded() {
    siginfo_t info{};
    while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0 &&
           !m_guardian.knows(info.si_pid)) {
        if (info.si_pid == m_process.processId())
            takeEnd("has ended");
        else
            waitid(P_PID, static_cast<id_t>(info.si_pid), &info, WEXITED | WNOHANG);
        info.si_pid = 0;
    }
}
