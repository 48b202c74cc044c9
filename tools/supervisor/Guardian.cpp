// How it works. The kernel kills a direct child of a killed supervisor by itself (each asks for that), but neither its
// helper processes nor anything behind a wrapper program. So a second process holds one end of a socket whose other end
// only the supervisor has. Every program enrols through it between fork and exec, so there is no moment at which one runs
// unknown. The end of the socket is the end of the supervisor, whatever the reason: all enrolled groups are killed then.
//
// What must always hold: the guardian's half runs in a forked copy of a process that may have threads, so it makes plain
// system calls only. A child subreaper was rejected, since it dies with the supervisor; a session or a control group, since
// those need rights or a system manager that a device may not give.
#include "Guardian.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Entry {
    int slot;
    pid_t group; // 0: no more
};

[[noreturn]] void guard(int channel, pid_t* groups) {
    setpgid(0, 0); // a terminal's Ctrl-C is not for it
    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP, SIGQUIT})
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
    spawn();
}

Guardian::~Guardian() {
    m_notifier.reset();
    close(m_channel);
    waitpid(m_process, nullptr, 0);
}

void Guardian::spawn() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        qFatal("cannot open a socket: %s; nothing was started", qPrintable(qt_error_string()));
    m_process = fork();
    if (m_process < 0)
        qFatal("cannot fork: %s; nothing was started", qPrintable(qt_error_string()));
    if (m_process == 0) {
        close(ends[0]);
        guard(ends[1], m_groups);
    }
    close(ends[1]);
    m_channel = ends[0];
}

void Guardian::enrol(int slot) const {
    setpgid(0, 0);
    // Nothing is lost when the guardian has just been killed: note() tells the next one.
    const Entry entry{slot, getpid()};
    send(m_channel, &entry, sizeof entry, MSG_NOSIGNAL);
}

void Guardian::note(int slot, pid_t group) {
    m_groups[slot] = group;
    const Entry entry{slot, group};
    send(m_channel, &entry, sizeof entry, MSG_NOSIGNAL);
}

void Guardian::keepAlive() {
    m_notifier = std::make_unique<QSocketNotifier>(m_channel, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this,
            &Guardian::replace); // it never writes: this is its end
}

void Guardian::replace() {
    m_notifier.release()->deleteLater(); // it is the one that called
    close(m_channel);
    waitpid(m_process, nullptr, 0);
    spawn();
    keepAlive();
}
