// Signals of the operating system, told by the event loop.
//
// A handler may do next to nothing, so it marks the signal as pending and wakes the event loop up through a pipe. The
// mark, not the byte in the pipe, tells which signal came: a pipe can be full. A signalfd was rejected: it needs the
// signals blocked, and every program started from here would inherit that.
//
// A listener may run an event loop, as a stop that waits for processes does. While others are still to be told, there is
// a byte in the pipe, so that such a loop goes on with them. Posted events would not do: Qt's event loop on GLib sleeps in
// a nested loop although older ones wait.
//
// What must always hold: the second signal that asks for the end works without the event loop, since a hook may hang.
// So the handler itself counts them.
#include "module/VelUnixSignals.h"

#include "module/StopRequest.h"
#include "module/VelModule.h"

#include <QPointer>
#include <QSocketNotifier>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <deque>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace {

int wakeUp[2] = {-1, -1};
pid_t owner = 0; // a process that was forked from here inherits the handler, and must not write into this pipe

std::atomic<bool> isPending[NSIG];
std::atomic<bool> asksForTheEnd[NSIG];
std::atomic<bool> endWasAskedFor{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler uses it");

void wakeTheLoop() {
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(wakeUp[1], &byte, sizeof byte);
}

void handle(int number) {
    const int errnoBefore = errno;
    if (getpid() != owner || (asksForTheEnd[number] && endWasAskedFor.exchange(true))) {
        std::signal(number, SIG_DFL);
        raise(number); // delivered when this handler returns
    } else if (!isPending[number].exchange(true)) {
        wakeTheLoop();
    }
    errno = errnoBefore;
}

void install(int number) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    if (action.sa_handler == handle || (action.sa_handler == SIG_IGN && number != SIGCHLD))
        return;
    action = {};
    action.sa_handler = handle;
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, nullptr);
}

// Reads the pipe and calls whoever asked for the signal.
class SignalPipe : public QObject {
public:
    static SignalPipe& ofProcess() {
        static auto* const pipe = new SignalPipe; // never deleted: a handler may run while static objects are
        return *pipe;
    }

    void add(std::initializer_list<int> numbers, QObject* context, std::function<void(int)> heard) {
        m_listeners.push_back({numbers, context, std::move(heard)});
        std::for_each(numbers.begin(), numbers.end(), install);
    }

private:
    struct Listener {
        std::vector<int> numbers;
        QPointer<QObject> context;
        std::function<void(int)> heard;
    };

    struct Call {
        int number;
        QPointer<QObject> context;
        std::function<void(int)> heard;
    };

    SignalPipe() {
        if (pipe2(wakeUp, O_CLOEXEC | O_NONBLOCK) != 0)
            qFatal("cannot open a pipe for signals: %s; the process ends", qPrintable(qt_error_string()));
        owner = getpid();
        auto* notifier = new QSocketNotifier(wakeUp[0], QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, &SignalPipe::read);
    }

    void read() {
        // First: a signal that comes from here on writes a new byte.
        char bytes[NSIG];
        while (::read(wakeUp[0], bytes, sizeof bytes) > 0) {
        }
        for (int number = 1; number < NSIG; ++number) {
            if (isPending[number].exchange(false))
                note(number);
        }
        while (!m_untold.empty()) {
            const Call call = m_untold.front();
            m_untold.pop_front();
            if (!m_untold.empty())
                wakeTheLoop();
            if (call.context)
                call.heard(call.number);
        }
    }

    void note(int number) {
        for (const Listener& listener : m_listeners) {
            if (std::count(listener.numbers.cbegin(), listener.numbers.cend(), number))
                m_untold.push_back({number, listener.context, listener.heard});
        }
    }

    std::vector<Listener> m_listeners;
    std::deque<Call> m_untold;
};

} // namespace

void velOnSignals(std::initializer_list<int> signalNumbers, QObject* context,
                  std::function<void(int signalNumber)> heard) {
    SignalPipe::ofProcess().add(signalNumbers, context, std::move(heard));
}

void velStopOnSignals(VelModule& module, std::initializer_list<int> signalNumbers) {
    for (const int number : signalNumbers) {
        if (number > 0 && number < NSIG)
            asksForTheEnd[number] = true;
    }
    // Before RUN the signal sig_stop() has no transition; slot_run() asks then whether it was emitted in vain.
    velOnSignals(signalNumbers, &module, [&module](int) { Q_EMIT module.sig_stop(); });
}

bool vel::stopWasAskedFor() {
    return endWasAskedFor;
}
