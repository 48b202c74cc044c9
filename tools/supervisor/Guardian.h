// Ends what the supervisor started, when the supervisor itself was killed.
#pragma once

#include "Configuration.h"
#include "process/LaunchMessages.h"

#include <QObject>

#include <sys/types.h>
#include <vector>

/// A small process of its own that knows every process group in use and kills all of them once the supervisor is gone.
///
/// Each program runs in a group of its own, under a slot number of the caller's choice. When the guardian is killed
/// or stopped, or does not take what it is told, another one takes its place.
class Guardian : public QObject {
    Q_OBJECT
public:
    /// One for each module, one for a program that looks at it, and one for the command of a save.
    static constexpr int slotCount = 2 * highestModuleCount + 1;

    /// Forks. To be made before anything that starts threads.
    Guardian();

    /// The supervisor ends in peace: the guardian does the same, and is waited for.
    ~Guardian() override;

    /// Makes the calling process the leader of a new group and enrols it under `slot`.
    ///
    /// Thread: the one of a process just forked, before it executes its program. Only calls what is allowed there.
    void enrol(int slot) const;

    /// The supervisor's side: the group under `slot` is that one from now on; 0 when it is no more.
    void note(int slot, pid_t group);

    /// What a process that somebody else forks has to send, with its process id after it, and where, to be enrolled.
    void describe(int slot, std::string& announcement, launch::Descriptor& channel) const;

    /// Whether the process leads a group in use, or is the guardian: somebody here collects it when it has ended.
    bool knows(pid_t process) const;

    /// Watches the guardian itself; to be called once there is an event loop.
    void keepAlive();

private:
    bool spawn();
    void end() const;
    void spawnOrRetry();
    void lookAfterIt();
    void removeEnded();

    pid_t m_groups[slotCount] = {};
    int m_channel = -1;
    pid_t m_process = -1;
    std::vector<pid_t> m_ended; // replaced ones, until the kernel has taken them away
};
