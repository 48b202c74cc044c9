// The starter's side of vel-launcher: runs it, sends requests to it, and knows which of them were taken.
//
// What must always hold: a request is taken by one process, or comes back as lost; never both. A spare outlives its
// launcher until it has taken what was sent before, or finds nothing; only then is it known what nobody will take.
//
// Thread: one. Nothing here waits but stop(), for the end of processes, and at most a second for a spare that is stopped.
#pragma once

#include "process/LaunchMessages.h"

#include <functional>
#include <set>

namespace launch {

/// Makes this process adopt the children of its children that end; needed before the first launcher is started. Whoever
/// calls this has to collect children that it never started, too.
bool becomeSubreaper();

class LauncherProcess {
public:
    /// What to run. `inChild` is called between fork and exec.
    struct Settings {
        std::string program;
        std::vector<std::string> libraries;
        std::function<void()> inChild;
    };

    explicit LauncherProcess(Settings settings) : m_settings(std::move(settings)) {}
    LauncherProcess(const LauncherProcess&) = delete;
    LauncherProcess& operator=(const LauncherProcess&) = delete;
    ~LauncherProcess();

    /// Starts it. False, with errno, when that is not possible.
    [[nodiscard]] bool start();

    bool isRunning() const { return m_process > 0; }
    pid_t processId() const { return m_process; }

    /// The descriptor that becomes readable when there is a reply.
    int socket() const { return m_socket.number(); }

    /// Sends a request: 0, or an errno.
    [[nodiscard]] int send(const Request& request);

    /// The next reply: true when there is one. `hasEnded` tells that the launcher has said its last word: stop() it.
    [[nodiscard]] bool next(Reply& reply, bool& hasEnded);

    /// Kills the launcher and collects it; waits until its spare has taken the next request, or has ended.
    ///
    /// Result: what they still said, Taken and Failed alone; and in `lost` the requests that nobody has taken.
    std::vector<Reply> stop(std::set<std::uint32_t>& lost);

    /// The process that waits to become a module; 0 when none is known. It is this process's child.
    pid_t spare() const { return m_spare; }

private:
    void note(const Reply& reply);

    const Settings m_settings;
    Descriptor m_socket;
    pid_t m_process = 0;
    pid_t m_spare = 0;
    std::set<std::uint32_t> m_open; // sent, and not known to be taken
};

} // namespace launch
