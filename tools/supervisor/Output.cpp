// How it works. A terminal that was told to hold, a pipe that nobody reads or a slow disk makes whoever writes to it wait.
// The event loop must not: while it waits, frozen modules stay frozen. So it only queues, and one thread a stream writes.
//
// A descriptor that does not block was rejected: the flag belongs to the open file, which the modules and the shell share.
// Opening the file anew was rejected: that is impossible for a socket, such as the journal's. The thread blocks all signals;
// so a terminal that stops writers in the background does not stop it.
//
// What must always hold: nobody waits for the thread, not even the end of the process, for longer than flush() is told.
#include "Output.h"

#include <QLoggingCategory>
#include <QMessageLogContext>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int longestQueue = 1024 * 1024; // bytes: some ten thousand lines

/// False when nobody can read it any more, or the disk is full.
bool writeAll(int descriptor, const QByteArray& text) {
    for (int at = 0; at < text.size();) {
        const ssize_t count = ::write(descriptor, text.constData() + at, static_cast<std::size_t>(text.size() - at));
        if (count >= 0) {
            at += static_cast<int>(count);
        } else if (errno == EAGAIN) { // somebody else has made it so
            pollfd writable{descriptor, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

QByteArray logLine(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    return qFormatLogMessage(type, context, text).toUtf8() + '\n';
}

void logThroughQueue(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    Output::log().write(logLine(type, context, text));
    if (type == QtFatalMsg)
        Output::log().flush(1000); // Qt ends the process next
}

} // namespace

Output::Output(int descriptor) : m_descriptor(descriptor) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    std::thread([this] { run(); }).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// Never deleted: their threads may still wait for a reader when static objects are destroyed.
Output& Output::log() {
    static auto* const output = new Output(STDERR_FILENO);
    return *output;
}

Output& Output::progress() {
    static auto* const output = new Output(STDOUT_FILENO);
    return *output;
}

void Output::takeOverLog() {
    qInstallMessageHandler(logThroughQueue);
}

void Output::write(const QByteArray& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_size + text.size() > longestQueue) {
        ++m_lost;
        return;
    }
    if (m_lost > 0)
        addNoteOfLoss();
    add({text, 1});
}

void Output::flush(int longestMs) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_isEmpty.wait_for(lock, std::chrono::milliseconds(longestMs), [this] { return m_texts.empty(); });
}

void Output::run() {
    for (;;) {
        const Text text = next();
        const bool isWritten = writeAll(m_descriptor, text.bytes);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_texts.pop_front();
        m_size -= text.bytes.size();
        m_isBroken = !isWritten;
        if (m_isBroken)
            m_lost += text.lines;
        else if (m_texts.empty() && m_lost > 0)
            addNoteOfLoss();
        if (m_texts.empty())
            m_isEmpty.notify_all();
    }
}

Output::Text Output::next() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_hasText.wait(lock, [this] { return !m_texts.empty(); });
    return m_texts.front();
}

void Output::add(const Text& text) {
    m_texts.push_back(text);
    m_size += text.bytes.size();
    m_hasText.notify_one();
}

void Output::addNoteOfLoss() {
    const QMessageLogContext context(nullptr, 0, nullptr, "vel.ApplicationManager");
    add({logLine(QtWarningMsg, context, QString("%1 lines were lost: nobody took them").arg(m_lost)), m_lost});
    m_lost = 0;
}
