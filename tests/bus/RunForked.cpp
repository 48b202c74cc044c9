// run-forked PROGRAM ARGUMENT...: runs a module as the supervisor does by fork, and looks like a module that was executed.
//
// For tests that start a module and look at its process. They find this one in its place: it hands on the signals that
// can be handed on, stops when the module stops, and ends as the module ends. When it is killed the module dies, too.
//
// What it cannot do: its process id is not the module's, and a SIGSTOP for it does not reach the module.
#include "process/LauncherProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int statusOfUsage = 2;
constexpr int statusOfLibraries = 127; // LIBS_ERROR

[[noreturn]] void fail(const char* reason) {
    std::fprintf(stderr, "run-forked: %s\n", reason);
    std::exit(statusOfLibraries);
}

launch::Descriptor copyOf(int number) {
    return launch::Descriptor(fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

launch::Request requestFor(char** arguments) {
    launch::Request request;
    request.object = std::string(arguments[0]) + ".so";
    for (; *arguments; ++arguments)
        request.arguments.emplace_back(*arguments);
    for (char** variable = environ; *variable; ++variable)
        request.environment.emplace_back(*variable);
    char* const folder = getcwd(nullptr, 0);
    request.folder = folder;
    std::free(folder);
    request.input = copyOf(STDIN_FILENO);
    request.output = copyOf(STDOUT_FILENO);
    request.error = copyOf(STDERR_FILENO);
    return request;
}

// The next reply that is not about a spare.
launch::Reply answerOf(launch::LauncherProcess& launcher) {
    launch::Reply reply;
    for (bool hasEnded = false; !hasEnded;) {
        while (launcher.next(reply, hasEnded)) {
            if (reply.kind != launch::Reply::Ready)
                return reply;
        }
        pollfd wait{launcher.socket(), POLLIN, 0};
        if (!hasEnded)
            poll(&wait, 1, -1);
    }
    fail("the launcher has ended");
}

// Ends this process as that one has ended; a core file is that one's only.
[[noreturn]] void endLike(int status) {
    if (WIFEXITED(status))
        std::_Exit(WEXITSTATUS(status));
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const int number = WTERMSIG(status);
    std::signal(number, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, number);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
    std::raise(number);
    std::abort();
}

void followChildren(pid_t module, launch::LauncherProcess& launcher) {
    int status = 0;
    for (pid_t child; (child = waitpid(-1, &status, WNOHANG | WUNTRACED)) > 0;) {
        if (child != module)
            continue;
        if (WIFSTOPPED(status)) {
            std::raise(SIGSTOP);
            continue;
        }
        launch::Reply reply;
        for (bool hasEnded = false; launcher.next(reply, hasEnded) && !hasEnded;) {
            if (reply.kind == launch::Reply::Failed)
                fail(reply.reason);
        }
        endLike(status);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("usage: run-forked PROGRAM ARGUMENT...\n", stderr);
        return statusOfUsage;
    }
    sigset_t before;
    sigset_t handedOn;
    sigemptyset(&handedOn);
    for (const int number : {SIGCHLD, SIGCONT, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2})
        sigaddset(&handedOn, number);
    sigprocmask(SIG_BLOCK, &handedOn, &before);
    launch::LauncherProcess launcher({VEL_LAUNCHER,
                                      {VEL_RECORDING_LIBRARY, VEL_LIBRARY}, // the log lines are recorded
                                      [&before] { sigprocmask(SIG_SETMASK, &before, nullptr); }});
    if (!launch::becomeSubreaper() || !launcher.start() || launcher.send(requestFor(argv + 1)) != 0)
        fail(std::strerror(errno));
    const launch::Reply answer = answerOf(launcher);
    if (answer.kind != launch::Reply::Taken)
        fail(answer.reason);
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDOUT_FILENO); // whoever reads it reads the module alone
    for (;;) {
        const int number = sigwaitinfo(&handedOn, nullptr);
        if (number == SIGCHLD)
            followChildren(answer.process, launcher);
        else if (number > 0)
            kill(answer.process, number);
    }
}
