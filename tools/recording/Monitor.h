// A connection that is sent everything that passes on a bus.
//
// libdbus connects, proves who we are and says hello; then its descriptor is read directly, in pieces as large as they
// come. Through libdbus every message would be read into an object, checked value by value, and written again: several
// times the work of handing the bytes on.
//
// What must always hold: whoever has a Monitor reads it whenever there is something. A bus keeps for a monitor what it
// does not take: one bus cuts the connection then, another one drops messages, and other programs pay for the memory.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct DBusConnection;

namespace recording {

/// Why something cannot be recorded or read: a clause for people.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Monitor {
public:
    /// Takes one whole message; it is gone when this returns.
    using Sink = std::function<void(std::string_view message)>;

    /// Connects. From its return on, the bus keeps every message that one of the match rules matches; without rules, every
    /// message. Among the first ones are answers to who has which name, so that who reads them knows all senders.
    ///
    /// Thread:   waits for the bus, 25 s at most for each answer.
    /// Errors:   throws an Error.
    Monitor(const std::string& address, std::vector<std::string> rules);
    ~Monitor();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    /// What poll() is to look at.
    int descriptor() const { return m_descriptor; }

    /// Takes what is there, some megabytes at most, and does not wait. False when the bus has ended the connection, and
    /// when it sent what is no message.
    [[nodiscard]] bool read(const Sink& sink);

private:
    struct Close {
        void operator()(DBusConnection* connection) const;
    };
    using Connection = std::unique_ptr<DBusConnection, Close>;

    static Connection connect(const std::string& address);
    bool becomeMonitor(const std::vector<std::string>& rules);
    bool receive();
    bool cut(const Sink& sink);
    static void askWhoIsThere(const Connection& connection);

    Connection m_connection;
    int m_descriptor = -1;
    std::string m_ownName;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0; ///< of what was received and not yet handed on
    std::size_t m_end = 0;
    bool m_hasEnded = false;
    bool m_isFull = false; ///< the last receive() filled the buffer: more may be there
};

} // namespace recording
