// A handler may do next to nothing, so it writes into a pipe that the event loop reads. A signalfd was rejected: it needs the
// signals blocked, and every process started from here would inherit that.
#include "UnixSignals.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int wakeUp[2] = {-1, -1};

void handle(int signalNumber) {
    const int errnoBefore = errno;
    const char byte = static_cast<char>(signalNumber);
    // A full pipe wakes the loop up just as well.
    [[maybe_unused]] const ssize_t written = write(wakeUp[1], &byte, 1);
    errno = errnoBefore;
}

} // namespace

UnixSignals& UnixSignals::instance() {
    static UnixSignals one;
    return one;
}

UnixSignals::UnixSignals() {
    if (pipe2(wakeUp, O_CLOEXEC | O_NONBLOCK) != 0)
        qFatal("cannot open a pipe: %s; no signal could be heard", qPrintable(qt_error_string()));
    auto* notifier = new QSocketNotifier(wakeUp[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &UnixSignals::read);

    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
        struct sigaction action {};
        sigaction(signalNumber, nullptr, &action);
        if (action.sa_handler == SIG_IGN && signalNumber != SIGCHLD)
            continue;
        action = {};
        action.sa_handler = handle;
        action.sa_flags = SA_RESTART;
        sigaction(signalNumber, &action, nullptr);
    }
}

void UnixSignals::read() {
    char bytes[64];
    bool isChildChanged = false;
    for (ssize_t count = 0; (count = ::read(wakeUp[0], bytes, sizeof bytes)) > 0;) {
        for (ssize_t at = 0; at < count; ++at) {
            if (bytes[at] == SIGCHLD)
                isChildChanged = true;
            else
                Q_EMIT endRequested();
        }
    }
    if (isChildChanged)
        Q_EMIT childChanged();
}
