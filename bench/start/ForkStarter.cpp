// Starts processes by vel-launcher, as a supervisor does, for a driver that holds the other end of the socket SOCKET.
//
//     fork-starter SOCKET
//
// It says "LAUNCHER-PID" when a process waits for the first request. A request is one message: texts that end with a zero,
// which are the shared object, the arguments, an empty text, and the environment; with it come the descriptors of the
// process's input and output. The answer is "PID", or the reason why there is none.
#include "process/LauncherProcess.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void answer(int driver, const std::string& text) {
    if (::send(driver, text.data(), text.size(), MSG_NOSIGNAL) < 0)
        std::exit(EXIT_SUCCESS); // the driver is gone
}

// The next thing that the launcher says; it never ends by itself.
launch::Reply nextReply(launch::LauncherProcess& launcher) {
    launch::Reply reply;
    bool hasEnded = false;
    while (!launcher.next(reply, hasEnded)) {
        pollfd wait{launcher.socket(), POLLIN, 0};
        if (hasEnded || poll(&wait, 1, -1) < 0) {
            reply.kind = launch::Reply::Refused;
            std::strcpy(reply.reason, "vel-launcher has ended");
            break;
        }
    }
    return reply;
}

bool takeRequest(int driver, launch::Request& request) {
    static char text[64 * 1024];
    alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))];
    iovec part{text, sizeof text};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(driver, &message, MSG_CMSG_CLOEXEC);
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (size <= 0 || text[size - 1] != 0 || !header || header->cmsg_len != CMSG_LEN(2 * sizeof(int)))
        return false;
    int streams[2];
    std::memcpy(streams, CMSG_DATA(header), sizeof streams);
    request.input = launch::Descriptor(streams[0]);
    request.output = launch::Descriptor(streams[1]);
    request.error = launch::Descriptor(dup(STDERR_FILENO));
    request.folder = "/";
    request.object = text;
    std::vector<std::string>* into = &request.arguments;
    for (const char* one = text + request.object.size() + 1; one < text + size; one += std::strlen(one) + 1) {
        if (*one)
            into->push_back(one);
        else
            into = &request.environment;
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    const int driver = argc == 2 ? std::atoi(argv[1]) : -1;
    if (driver <= STDERR_FILENO || !launch::becomeSubreaper())
        return EXIT_FAILURE;
    signal(SIGCHLD, SIG_IGN); // nobody asks for a status
    launch::LauncherProcess launcher({VEL_LAUNCHER, {VEL_LIBRARY}, [] { signal(SIGCHLD, SIG_DFL); }});
    if (!launcher.start())
        return EXIT_FAILURE;
    while (launcher.spare() == 0) {
        if (nextReply(launcher).kind == launch::Reply::Refused)
            return EXIT_FAILURE;
    }
    answer(driver, std::to_string(launcher.processId()));
    for (std::uint32_t id = 1;; ++id) {
        launch::Request
            request; // a new one: whoever waits for the process's end must not wait for this copy of its output
        request.id = id;
        if (!takeRequest(driver, request))
            return EXIT_SUCCESS;
        if (const int error = launcher.send(request)) {
            answer(driver, std::strerror(error));
        } else {
            launch::Reply reply;
            do
                reply = nextReply(launcher);
            while (reply.kind == launch::Reply::Ready);
            answer(driver, reply.kind == launch::Reply::Taken ? std::to_string(reply.process) : reply.reason);
        }
    }
}
