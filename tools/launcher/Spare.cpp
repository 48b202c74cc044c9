// How a spare becomes a module.
//
// What must always hold: the module finds what an executed process would find. Its arguments, environment, folder and
// three standard descriptors are the request's; of the launcher's own descriptors none is left; no signal is blocked,
// handled or ignored that was not so when the launcher was started; it leads a process group of its own; it dies with
// the starter. What cannot be equal: addresses of libraries, the stack protector's random number, and /proc/PID/exe.
//
// And: it announces itself before anything that could take long, so that whoever keeps the list of what runs knows it
// before any code of the module does anything.
#include "Spare.h"

#include "ProcessName.h"
#include "process/LaunchMessages.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int statusOfLibraries = 127; // LIBS_ERROR

[[noreturn]] void fail(int socket, const launch::Request& request, const std::string& reason) {
    launch::Reply reply;
    reply.kind = launch::Reply::Failed;
    reply.id = request.id;
    reply.process = getpid();
    reason.copy(reply.reason, sizeof reply.reason - 1);
    launch::send(socket, reply);
    _exit(statusOfLibraries);
}

void announce(const launch::Request& request) {
    if (!request.announce.isOpen())
        return;
    std::string text = request.announcement;
    const pid_t process = getpid();
    text.append(reinterpret_cast<const char*>(&process), sizeof process);
    ::send(request.announce.number(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void closeAllBut(int kept) {
    DIR* const folder = opendir("/proc/self/fd");
    if (!folder)
        return;
    const int own = dirfd(folder);
    while (const dirent* const entry = readdir(folder)) {
        const int number = std::atoi(entry->d_name);
        if (number > STDERR_FILENO && number != kept && number != own)
            close(number);
    }
    closedir(folder);
}

void takeDescriptors(launch::Request& request) {
    launch::Descriptor* const given[] = {&request.input, &request.output, &request.error};
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        if (given[number]->isOpen())
            dup2(given[number]->number(), number);
        else
            close(number);
    }
}

// Of main()'s form, and exported by the module under this name.
using Entry = int (*)(int, char**);

[[noreturn]] void become(int socket, launch::Request& request) {
    takeDescriptors(request);
    closeAllBut(socket);
    request.input.release();
    request.output.release();
    request.error.release();
    request.announce.release();
    if (chdir(request.folder.c_str()) != 0)
        fail(socket, request, std::string("cannot enter '") + request.folder + "': " + std::strerror(errno));
    setProcessName(request.arguments);

    // Both live as long as the process, as main()'s do.
    static auto* const variables = new std::vector<char*>;
    for (std::string& variable : request.environment)
        variables->push_back(variable.data());
    variables->push_back(nullptr);
    environ = variables->data();
    static auto* const arguments = new std::vector<char*>;
    for (std::string& argument : request.arguments)
        arguments->push_back(argument.data());
    arguments->push_back(nullptr);

    void* const object = dlopen(request.object.c_str(), RTLD_NOW | RTLD_GLOBAL);
    const Entry entry = object ? reinterpret_cast<Entry>(dlsym(object, "velModuleMain")) : nullptr;
    if (!entry)
        fail(socket, request, dlerror());
    close(socket);
    std::exit(entry(static_cast<int>(request.arguments.size()), arguments->data()));
}

} // namespace

void waitAndBecome(int socket, pid_t starter, int tellTaken) {
    setProcessName({"vel-spare"});
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != starter) { // it has died, or nobody who adopts lies between
        launch::Reply reply;
        reply.kind = launch::Reply::Refused;
        std::snprintf(reply.reason, sizeof reply.reason, "whoever starts vel-launcher must be a child subreaper");
        launch::send(socket, reply);
        _exit(statusOfLibraries);
    }
    launch::Reply reply;
    reply.kind = launch::Reply::Ready;
    reply.process = getpid();
    launch::send(socket, reply);

    static launch::Request request; // for the life of the module: its arguments and environment lie here
    if (!launch::receive(socket, request))
        _exit(0);
    setpgid(0, 0);
    announce(request);
    reply.kind = launch::Reply::Taken;
    reply.id = request.id;
    launch::send(socket, reply);
    ::send(tellTaken, "", 1, MSG_NOSIGNAL); // the launcher may have died by now; the module must not
    close(tellTaken);
    become(socket, request);
}
