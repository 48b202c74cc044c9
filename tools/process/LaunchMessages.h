// What a starter of modules and vel-launcher say to each other, over a socket that keeps messages whole.
//
//     starter -> launcher    Request
//     launcher -> starter    Ready, Taken, Failed, Refused
//
// The launcher always keeps one process forked that waits for the next request on this socket, the spare. It says
// Ready when it begins to wait and Taken when it has a request; from then on it is the module. So a request is taken by
// exactly one process, and a launcher that dies takes no request with it: what nobody has taken stays in the socket.
//
// Thread: every function may be called in any thread. Nothing here needs Qt: the launcher must not use what it loads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace launch {

/// A descriptor that is closed with its owner.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor();

    int number() const { return m_number; }
    bool isOpen() const { return m_number >= 0; }
    int release();

private:
    int m_number;
};

/// What a process is to become.
struct Request {
    std::uint32_t id = 0;                 ///< the starter's own; comes back with Taken and Failed
    std::string object;                   ///< the shared object, with its path
    std::vector<std::string> arguments;   ///< as main() gets them; the first is the program's path
    std::vector<std::string> environment; ///< all of it, as KEY=VALUE
    std::string folder;                   ///< the working folder
    std::string announcement;             ///< bytes, sent over `announce` with the process id (a pid_t) after them

    Descriptor input;
    Descriptor output;
    Descriptor error;
    Descriptor announce;
};

/// How long all texts of a request may be together.
constexpr std::size_t longestTexts = 8 * 1024 * 1024;

struct Reply {
    enum Kind : std::uint32_t {
        Ready,   ///< `process` waits for a request
        Taken,   ///< `process` has request `id`, leads a group of its own and has announced itself
        Failed,  ///< `process` could not become what request `id` says; it has ended
        Refused, ///< the launcher forks nothing (more); it has ended
    };
    Kind kind = Ready;
    std::uint32_t id = 0;
    pid_t process = 0;
    char reason[500] = {}; ///< of Failed and Refused; ends with a zero
};

/// Sends a request. It does not wait: returns 0, or the errno, EAGAIN when the socket is full.
[[nodiscard]] int send(int socket, const Request& request);

/// Waits for a request. False at the end of the socket, and for what is no request.
[[nodiscard]] bool receive(int socket, Request& request);

/// Sends a reply; waits for a starter that does not read. Fails only when the starter has gone.
void send(int socket, const Reply& reply);

/// Takes the next reply if there is one: 1. Otherwise 0, and -1 when the other side has closed the socket.
[[nodiscard]] int receive(int socket, Reply& reply);

} // namespace launch
