// Signals into the event loop: the handler may only write, so it writes into a pipe that the loop reads.
#include "demo/Interruption.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t firstSignal = 0;
int wakeUp[2] = {-1, -1};

void handle(int signalNumber) {
    const int errnoBefore = errno;
    if (!firstSignal)
        firstSignal = signalNumber;
    const char byte = 0;
    // A full pipe wakes the loop up just as well.
    [[maybe_unused]] const ssize_t written = write(wakeUp[1], &byte, 1);
    errno = errnoBefore;
}

} // namespace

Interruption::Interruption() {
    if (pipe2(wakeUp, O_CLOEXEC | O_NONBLOCK) != 0)
        qFatal("cannot open a pipe: %s; the demo cannot be ended cleanly", qPrintable(qt_error_string()));
    auto* notifier = new QSocketNotifier(wakeUp[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        char bytes[16];
        while (read(wakeUp[0], bytes, sizeof bytes) > 0) {
        }
        Q_EMIT arrived();
    });

    struct sigaction action {};
    action.sa_handler = handle;
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signalNumber, &action, nullptr);
}

int Interruption::signalNumber() const {
    return firstSignal;
}
