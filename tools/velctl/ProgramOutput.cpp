// Three pipes end with the program: its output, its messages, and one that it does not know of, which tells that it has
// really ended. So its end is waited for in poll(), with the time limit of the rest.
#include "ProgramOutput.h"

#include "process/LaunchMessages.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace velctl {

namespace {

using launch::Descriptor;

constexpr int cannotRun = 127; // as a shell ends then

struct Pipe {
    Descriptor read;
    Descriptor write;
    bool open() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return false;
        read = Descriptor(ends[0]);
        write = Descriptor(ends[1]);
        return true;
    }
};

// Does not return. `argv` ends with a null, and was made before the fork.
[[noreturn]] void become(char* const* argv, const std::array<Pipe, 3>& pipes, pid_t parent) {
    const auto fail = [](const char* reason) {
        // Nobody is told when this cannot be written.
        (void)!write(STDERR_FILENO, reason, std::strlen(reason));
        _exit(cannotRun);
    };
    setpgid(0, 0);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(pipes[0].write.number(), STDOUT_FILENO);
    dup2(pipes[1].write.number(), STDERR_FILENO);
    fcntl(pipes[2].write.number(), F_SETFD, 0);
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(cannotRun);
    execvp(argv[0], argv);
    fail(std::strerror(errno));
    std::abort();
}

QString firstLineOf(const QByteArray& messages) {
    constexpr int longest = 300;
    return QString::fromUtf8(messages.trimmed().split('\n').value(0).left(longest));
}

QString problemOf(int status, const QByteArray& messages) {
    const QString said = firstLineOf(messages);
    if (WIFSIGNALED(status))
        return QString("it was ended by signal %1").arg(WTERMSIG(status));
    if (WEXITSTATUS(status) == cannotRun && !said.isEmpty())
        return "it cannot be run: " + said;
    if (WEXITSTATUS(status) != 0)
        return QString("it ended with status %1").arg(WEXITSTATUS(status)) + (said.isEmpty() ? said : ": " + said);
    return QString();
}

// Reads until all three pipes have ended; why not, otherwise.
QString readAll(const std::array<Pipe, 3>& pipes, ProgramOutput& output, QByteArray& messages,
                const QDeadlineTimer& end, int mostBytes) {
    constexpr int mostMessages = 4096;
    std::array<pollfd, 3> waited{};
    for (size_t index = 0; index < pipes.size(); ++index)
        waited[index] = {pipes[index].read.number(), POLLIN, 0};
    const auto isOpen = [](const pollfd& one) { return one.fd >= 0; };
    while (std::any_of(waited.begin(), waited.end(), isOpen)) {
        const int seen = poll(waited.data(), waited.size(), int(std::min(end.remainingTime(), qint64(1 << 30))));
        if (seen == 0 && end.hasExpired())
            return "it has not ended in its time";
        for (size_t index = 0; seen > 0 && index < pipes.size(); ++index) {
            if (!isOpen(waited[index]) || !waited[index].revents)
                continue;
            char buffer[4096];
            const ssize_t size = read(waited[index].fd, buffer, sizeof buffer);
            if (size == 0)
                waited[index].fd = -1; // poll() passes over it
            else if (index == 0 && size > 0)
                output.text.append(buffer, int(size));
            else if (index == 1 && size > 0 && messages.size() < mostMessages)
                messages.append(buffer, int(size));
        }
        if (output.text.size() > mostBytes)
            return QString("it printed more than %1 kB").arg(mostBytes / 1024);
    }
    return QString();
}

} // namespace

ProgramOutput outputOf(const QString& program, const QList<QByteArray>& arguments,
                       const QList<std::pair<QByteArray, QByteArray>>& environment, const QDeadlineTimer& end,
                       int mostBytes) {
    const QByteArray path = program.toUtf8();
    std::vector<char*> argv{const_cast<char*>(path.constData())};
    for (const QByteArray& argument : arguments)
        argv.push_back(const_cast<char*>(argument.constData()));
    argv.push_back(nullptr);
    for (const auto& [name, value] : environment)
        setenv(name.constData(), value.constData(), 1);

    ProgramOutput output;
    std::array<Pipe, 3> pipes; // output, messages, its life
    const pid_t parent = getpid();
    pid_t process = -1;
    if (std::all_of(pipes.begin(), pipes.end(), [](Pipe& one) { return one.open(); }))
        process = fork();
    if (process == 0)
        become(argv.data(), pipes, parent);
    if (process < 0) {
        output.problem = QString("it cannot be run: %1").arg(std::strerror(errno));
        return output;
    }
    setpgid(process, process); // here too: it must lead its group before it may have to be killed
    for (Pipe& one : pipes)
        one.write = Descriptor();
    QByteArray messages;
    output.problem = readAll(pipes, output, messages, end, mostBytes);
    if (!output.problem.isEmpty())
        kill(-process, SIGKILL);
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR)
        ;
    if (output.problem.isEmpty())
        output.problem = problemOf(status, messages);
    return output;
}

} // namespace velctl
