// vel-launcher: loads the libraries of modules once, and forks processes that become modules.
//
// How it works. Three quarters of a module's start are look-ups of symbols and relocations of the same libraries, and
// most memory that it does not share are the pages written so. This process loads the libraries with all symbols bound
// and uses none of them; a process forked from it has all that, shared until it is written to. One such process is
// always there and waits, the spare, so that not even the fork lies on the way of a start. The spare is forked twice
// over: when the process between has ended, the starter, a child subreaper, is its parent, and learns its end and status.
//
// What must always hold: there is one thread when it forks. A thread of a library would not be in the copy, but what it
// holds locked would stay locked there. So threads are counted after each library.
#include "ProcessName.h"
#include "Spare.h"
#include "process/LaunchMessages.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int statusOfUsage = 2;
constexpr int statusOfLibraries = 127; // LIBS_ERROR

constexpr char usage[] = R"(usage: vel-launcher --socket=NUMBER LIBRARY...

Loads the libraries and forks processes that become modules. A supervisor starts it; NUMBER is the descriptor of its end
of the socket on which requests come. It ends with the supervisor.

    --help       shows this
    --version    shows the version
)";

[[noreturn]] void refuse(int socket, const std::string& reason) {
    launch::Reply reply;
    reply.kind = launch::Reply::Refused;
    reason.copy(reply.reason, sizeof reply.reason - 1);
    launch::send(socket, reply);
    _exit(statusOfLibraries);
}

int threadCount() {
    int count = 0;
    if (DIR* const folder = opendir("/proc/self/task")) {
        while (const dirent* const entry = readdir(folder))
            count += entry->d_name[0] != '.';
        closedir(folder);
    }
    return count;
}

void load(int socket, const char* library) {
    if (!dlopen(library, RTLD_NOW | RTLD_GLOBAL))
        refuse(socket, dlerror());
    if (threadCount() != 1)
        refuse(socket,
               std::string("'") + library + "' starts a thread when it is loaded; nothing can be forked with it");
}

pid_t otherSide(int socket) {
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 ? peer.pid : 0;
}

// Forks a spare whose parent is the starter. Returns the descriptor that tells when it is taken or has ended.
int forkSpare(int socket, pid_t starter) {
    int taken[2];
    int adopted[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, taken) != 0 || pipe2(adopted, O_CLOEXEC) != 0)
        refuse(socket, std::string("cannot open a socket: ") + std::strerror(errno));
    const pid_t between = fork();
    if (between < 0)
        refuse(socket, std::string("cannot fork: ") + std::strerror(errno));
    if (between == 0) {
        const pid_t spare = fork();
        if (spare != 0)
            _exit(spare < 0);
        close(taken[0]);
        close(adopted[1]);
        char nothing;
        while (read(adopted[0], &nothing, 1) < 0 && errno == EINTR) // until the process between has been collected
            ;
        close(adopted[0]);
        waitAndBecome(socket, starter, taken[1]);
    }
    close(taken[1]);
    close(adopted[0]);
    int status = 0;
    while (waitpid(between, &status, 0) < 0 && errno == EINTR)
        ;
    close(adopted[1]);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        refuse(socket, "cannot fork");
    return taken[0];
}

// True when the spare was taken, false when it has ended unused. Ends with the starter.
bool waitForSpare(int socket, int taken) {
    pollfd waits[] = {{taken, POLLIN, 0}, {socket, 0, 0}};
    for (;;) {
        if (poll(waits, 2, -1) < 0 && errno != EINTR)
            _exit(statusOfLibraries);
        if (waits[1].revents != 0)
            _exit(0);
        if (waits[0].revents == 0)
            continue;
        char byte;
        const bool wasTaken = read(taken, &byte, 1) == 1;
        close(taken);
        return wasTaken;
    }
}

[[noreturn]] void forkForEver(int socket, pid_t starter) {
    constexpr int mostLosses = 5; // in a row: whatever ends spares would end the next one, too
    for (int losses = 0; losses < mostLosses;)
        losses = waitForSpare(socket, forkSpare(socket, starter)) ? 0 : losses + 1;
    refuse(socket, "spare processes end before they are used");
}

} // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (first == "--help" || first == "--version") {
        std::fputs(first == "--help" ? usage : "vel-launcher " VEL_LAUNCHER_VERSION "\n", stdout);
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    constexpr char socketOption[] = "--socket=";
    char* end = nullptr;
    const long socket =
        first.rfind(socketOption, 0) == 0 ? std::strtol(argv[1] + sizeof socketOption - 1, &end, 10) : -1;
    const pid_t starter = socket > STDERR_FILENO && !*end ? otherSide(static_cast<int>(socket)) : 0;
    if (starter <= 0) {
        std::fputs(usage, stderr);
        return statusOfUsage;
    }
    reserveProcessName(argv);
    setpgid(0, 0); // a terminal's Ctrl-C is for the starter
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != starter)
        return 0;
    int nothing; // a received descriptor must not get a standard number
    do
        nothing = open("/dev/null", O_RDWR);
    while (nothing >= 0 && nothing <= STDERR_FILENO);
    close(nothing);
    fcntl(static_cast<int>(socket), F_SETFD, FD_CLOEXEC);
    for (int index = 2; index < argc; ++index)
        load(static_cast<int>(socket), argv[index]);
    forkForEver(static_cast<int>(socket), starter);
}
