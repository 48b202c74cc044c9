// How it works. The kernel kills a direct child of a killed supervisor by itself (each asks for that), but neither its
// helper processes nor anything behind a wrapper program. So a second process holds one end of a socket whose other end
// only the supervisor has. Every program enrols through it between fork and exec, so there is no moment at which one runs
// unknown. The end of the socket is the end of the supervisor, whatever the reason: all enrolled groups are killed then.
//
// What must always hold: the guardian's half runs in a forked copy of a process that may have threads, so it makes plain
// system calls only. A child subreaper was rejected, since it dies with the supervisor; a session or a control group, since
// those need rights or a system manager that a device may not give.
#include "Guardian.h"

#include "Log.h"

#include <VelUnixSignals>

#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <iterator>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int retryMs = 1000;

struct Entry {
    int slot;
    pid_t group; // 0: no more
};

[[noreturn]] void guard(int channel, pid_t* groups) {
    setpgid(0, 0); // a terminal's Ctrl-C is not for it
    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGTSTP, SIGTTIN, SIGTTOU})
        signal(signalNumber, SIG_IGN);
    prctl(PR_SET_NAME, "vel-guardian");
    Entry entry;
    for (;;) {
        const ssize_t length = recv(channel, &entry, sizeof entry, 0);
        if (length < 0 && errno == EINTR)
            continue;
        if (length != sizeof entry)
            break;
        groups[entry.slot] = entry.group;
    }
    for (int slot = 0; slot < Guardian::slotCount; ++slot) {
        if (groups[slot] > 0)
            kill(-groups[slot], SIGKILL);
    }
    _exit(0);
}

} // namespace

Guardian::Guardian() {
    if (!spawn())
        qFatal("cannot start a guardian: %s; nothing was started", qPrintable(qt_error_string()));
}

// Everything has ended, so it has nothing to do any more; it may be stopped, so it is not asked to end.
Guardian::~Guardian() {
    end();
    close(m_channel);
}

// Never with a number below zero, which would mean every process there is.
void Guardian::end() const {
    if (m_process > 0)
        kill(m_process, SIGKILL);
}

bool Guardian::spawn() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return false;
    m_process = fork();
    if (m_process == 0) {
        close(ends[0]);
        guard(ends[1], m_groups);
    }
    close(ends[1]);
    m_channel = ends[0];
    if (m_process < 0)
        close(std::exchange(m_channel, -1));
    return m_process > 0;
}

void Guardian::enrol(int slot) const {
    setpgid(0, 0);
    // Nothing is lost when the guardian has just been killed: note() tells the next one.
    const Entry entry{slot, getpid()};
    send(m_channel, &entry, sizeof entry, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void Guardian::describe(int slot, std::string& announcement, launch::Descriptor& channel) const {
    static_assert(offsetof(Entry, group) == sizeof slot, "the process id follows at once");
    announcement.assign(reinterpret_cast<const char*>(&slot), sizeof slot);
    channel = launch::Descriptor(fcntl(m_channel, F_DUPFD_CLOEXEC, 0));
}

bool Guardian::knows(pid_t process) const {
    return process == m_process || std::count(m_ended.begin(), m_ended.end(), process) > 0 ||
           std::count(std::begin(m_groups), std::end(m_groups), process) > 0;
}

void Guardian::note(int slot, pid_t group) {
    m_groups[slot] = group;
    const Entry entry{slot, group};
    if (send(m_channel, &entry, sizeof entry, MSG_NOSIGNAL | MSG_DONTWAIT) != sizeof entry && errno == EAGAIN)
        end(); // the kernel tells of it, and another one comes
}

void Guardian::keepAlive() {
    velOnSignals({SIGCHLD}, this, [this](int) { lookAfterIt(); });
    lookAfterIt();
}

void Guardian::lookAfterIt() {
    siginfo_t info{};
    if (m_process <= 0 ||
        waitid(P_PID, static_cast<id_t>(m_process), &info, WEXITED | WSTOPPED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid == 0)
        return removeEnded();
    logWarning(QString("the guardian, process %1, was %2: another one takes its place")
                   .arg(m_process)
                   .arg(info.si_code == CLD_STOPPED ? "stopped" : "killed"));
    end();
    m_ended.push_back(std::exchange(m_process, -1));
    close(std::exchange(m_channel, -1));
    removeEnded();
    spawnOrRetry();
}

void Guardian::removeEnded() {
    m_ended.erase(
        std::remove_if(m_ended.begin(), m_ended.end(), [](pid_t one) { return waitpid(one, nullptr, WNOHANG) != 0; }),
        m_ended.end());
}

void Guardian::spawnOrRetry() {
    if (spawn())
        return;
    logError(
        QString("cannot start a guardian: %1; until there is one, nobody ends the modules' helpers when the supervisor "
                "is killed")
            .arg(qt_error_string()));
    QTimer::singleShot(retryMs, this, &Guardian::spawnOrRetry);
}
