#include "process/LauncherProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace launch {

namespace {

void killAndCollect(pid_t process) {
    kill(process, SIGKILL);
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR)
        ;
}

} // namespace

bool becomeSubreaper() {
    return prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
}

LauncherProcess::~LauncherProcess() {
    std::set<std::uint32_t> lost;
    stop(lost);
}

bool LauncherProcess::start() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return false;
    m_socket = Descriptor(ends[0]);
    const Descriptor theirs(ends[1]);
    // All that needs memory is made before the fork.
    std::vector<std::string> texts{m_settings.program, "--socket=" + std::to_string(ends[1])};
    texts.insert(texts.end(), m_settings.libraries.cbegin(), m_settings.libraries.cend());
    std::vector<char*> arguments;
    for (std::string& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);
    const pid_t process = fork();
    if (process == 0) {
        if (m_settings.inChild)
            m_settings.inChild();
        signal(SIGPIPE, SIG_DFL); // the bus library ignores it
        fcntl(ends[1], F_SETFD, 0);
        execv(m_settings.program.c_str(), arguments.data());
        _exit(127); // LIBS_ERROR; the closed socket tells
    }
    m_process = process > 0 ? process : 0;
    return isRunning();
}

int LauncherProcess::send(const Request& request) {
    if (!isRunning())
        return ESRCH;
    const int error = launch::send(m_socket.number(), request);
    if (error == 0)
        m_open.insert(request.id);
    return error;
}

void LauncherProcess::note(const Reply& reply) {
    if (reply.kind == Reply::Ready) {
        m_spare = reply.process;
    } else if (reply.kind == Reply::Taken) {
        m_open.erase(reply.id);
        if (m_spare == reply.process)
            m_spare = 0;
    }
}

bool LauncherProcess::next(Reply& reply, bool& hasEnded) {
    const int result = isRunning() ? receive(m_socket.number(), reply) : -1;
    hasEnded = result < 0 || (result > 0 && reply.kind == Reply::Refused);
    if (result > 0)
        note(reply);
    return result > 0;
}

std::vector<Reply> LauncherProcess::stop(std::set<std::uint32_t>& lost) {
    std::vector<Reply> last;
    if (!isRunning())
        return last;
    killAndCollect(m_process);
    m_process = 0;
    // Nobody is forked from here on, and nothing is sent. A spare takes what has been sent already, or finds the end.
    shutdown(m_socket.number(), SHUT_WR);
    constexpr int longestWait = 1000; // ms: only a process that was stopped takes longer
    for (Reply reply;;) {
        pollfd wait{m_socket.number(), POLLIN, 0};
        const int ready = poll(&wait, 1, longestWait);
        const int result = receive(m_socket.number(), reply);
        if (result > 0) {
            note(reply);
            if (reply.kind == Reply::Taken || reply.kind == Reply::Failed)
                last.push_back(reply);
        } else if (result < 0 || (ready == 0 && m_spare == 0)) {
            break;
        } else if (ready == 0) {
            killAndCollect(std::exchange(m_spare, 0));
        }
    }
    m_spare = 0;
    m_socket = Descriptor();
    lost.swap(m_open);
    return last;
}

} // namespace launch
