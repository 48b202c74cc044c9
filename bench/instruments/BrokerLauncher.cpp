// Becomes a dbus-broker that listens on a socket of its own, without systemd.
//
//     broker-launcher SOCKET [BYTES]      so many may a user have waiting in the broker; 1,000,000,000 unless said
//
// The broker opens nothing itself: whoever started it hands it a listening socket and the bus's policy over the
// connection that it was given at its start, and it ends when that connection does. Here the program itself becomes the
// broker, so that its process is the bus, and a child of it plays the controller: it prints the bus's address once
// clients are served, and dies with the broker.
#include "testing/RawMessage.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "broker-launcher: cannot %s: %s; there is no bus\n", what, std::strerror(errno));
    _exit(1);
}

int listenOn(const char* path) {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path)
        fail("listen: the path is too long");
    std::strcpy(address.sun_path, path);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, SOMAXCONN) != 0)
        fail("listen");
    return listener;
}

// Sets of rules: who may connect, own a name, send, receive.
#define OWN_RULE "(btbs)"
#define TRAFFIC_RULE "(btssssuutt)"
#define RULES "(bta" OWN_RULE "a" TRAFFIC_RULE "a" TRAFFIC_RULE ")"
#define RULES_OF_A_USER "(u" RULES ")"
#define RULES_OF_A_RANGE "(buu" RULES ")"
#define POLICY "(a" RULES_OF_A_USER "a" RULES_OF_A_RANGE "a(ss)bs)"

constexpr dbus_uint64_t priority = 1;

void allowTraffic(DBusMessageIter& rules) {
    RawContainer list(rules, DBUS_TYPE_ARRAY, TRAFFIC_RULE);
    RawContainer rule(list, DBUS_TYPE_STRUCT);
    rule.flag(true);
    rule.large(priority);
    for (int anything = 0; anything < 4; ++anything) // name, path, interface, member
        rule.text("");
    rule.natural(0); // any type
    rule.natural(0); // broadcasts or not
    rule.large(0);   // any number of file descriptors
    rule.large(UINT64_MAX);
}

// Everybody may do everything.
void appendPolicy(DBusMessageIter& arguments) {
    RawContainer variant(arguments, DBUS_TYPE_VARIANT, POLICY);
    RawContainer policy(variant, DBUS_TYPE_STRUCT);
    {
        RawContainer users(policy, DBUS_TYPE_ARRAY, RULES_OF_A_USER);
        RawContainer user(users, DBUS_TYPE_STRUCT);
        user.natural(UINT32_MAX); // the default for all users
        RawContainer rules(user, DBUS_TYPE_STRUCT);
        rules.flag(true); // connecting
        rules.large(priority);
        {
            RawContainer list(rules, DBUS_TYPE_ARRAY, OWN_RULE);
            RawContainer rule(list, DBUS_TYPE_STRUCT);
            rule.flag(true);
            rule.large(priority);
            rule.flag(true); // every name that begins with
            rule.text("");
        }
        allowTraffic(rules); // sending
        allowTraffic(rules); // receiving
    }
    { const RawContainer none(policy, DBUS_TYPE_ARRAY, RULES_OF_A_RANGE); }
    { const RawContainer none(policy, DBUS_TYPE_ARRAY, "(ss)"); } // SELinux contexts
    policy.flag(false);                                           // no AppArmor
    policy.text("session");
}

RawMessage addListener(int listener) {
    RawMessage call(
        dbus_message_new_method_call(nullptr, "/org/bus1/DBus/Broker", "org.bus1.DBus.Broker", "AddListener"));
    DBusMessageIter arguments;
    dbus_message_iter_init_append(call.get(), &arguments);
    const char* name = "/org/bus1/DBus/Listener/0";
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_OBJECT_PATH, &name);
    dbus_message_iter_append_basic(&arguments, DBUS_TYPE_UNIX_FD, &listener);
    appendPolicy(arguments);
    dbus_message_set_serial(call.get(), 1);
    return call;
}

// libdbus cannot take over a connection that is open already, so the controller's few bytes are written here.
void send(int connection, const RawMessage& message, int descriptor) {
    constexpr char handshake[] = "\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n";
    constexpr ssize_t length = sizeof handshake - 1;
    if (write(connection, handshake, length) != length)
        fail("greet the broker");
    char* bytes = nullptr;
    int size = 0;
    if (!dbus_message_marshal(message.get(), &bytes, &size))
        fail("build the policy");
    iovec part{bytes, static_cast<std::size_t>(size)};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptor)> control{};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    cmsghdr* attached = CMSG_FIRSTHDR(&header);
    attached->cmsg_level = SOL_SOCKET;
    attached->cmsg_type = SCM_RIGHTS;
    attached->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(attached), &descriptor, sizeof descriptor);
    if (sendmsg(connection, &header, 0) != size)
        fail("hand over the socket");
    dbus_free(bytes);
}

// The answer follows the handshake's own lines, of which the third is the last.
RawMessage answerOf(int connection) {
    std::vector<char> received;
    std::array<char, 4096> chunk{};
    for (;;) {
        const ssize_t count = read(connection, chunk.data(), chunk.size());
        if (count <= 0)
            fail("read the broker's answer");
        received.insert(received.end(), chunk.begin(), chunk.begin() + count);
        std::size_t at = 0;
        int lines = 0;
        for (; at < received.size() && lines < 3; ++at)
            lines += received[at] == '\n';
        const char* bytes = received.data() + at;
        const int size = static_cast<int>(received.size() - at);
        const int needed = lines == 3 && size > 0 ? dbus_message_demarshal_bytes_needed(bytes, size) : 0;
        if (needed > 0 && size >= needed)
            return RawMessage(dbus_message_demarshal(bytes, needed, nullptr));
    }
}

[[noreturn]] void control(int connection, int listener, const char* path) {
    send(connection, addListener(listener), listener);
    const RawMessage answer = answerOf(connection);
    if (!answer || dbus_message_get_type(answer.get()) != DBUS_MESSAGE_TYPE_METHOD_RETURN) {
        std::fprintf(stderr, "broker-launcher: cannot hand over the socket: %s; there is no bus\n",
                     answer ? dbus_message_get_error_name(answer.get()) : "no message came back");
        _exit(1);
    }
    std::printf("unix:path=%s\n", path);
    std::fflush(stdout);
    std::array<char, 4096> ignored{};
    while (read(connection, ignored.data(), ignored.size()) > 0) {
        // What the broker tells its controller is about starting services, of which this bus has none.
    }
    _exit(0);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        std::fputs("usage: broker-launcher SOCKET [BYTES]\n", stderr);
        return 2;
    }
    const int listener = listenOn(argv[1]);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        fail("connect to the broker");
    const pid_t broker = getpid();
    if (fork() == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != broker) // it died before the line above
            _exit(1);
        close(ends[1]);
        control(ends[0], listener, argv[1]);
    }
    close(ends[0]);
    // The limits are those of the daemon that is used otherwise, where the broker knows them: none that a test reaches.
    execlp("dbus-broker", "dbus-broker", "--controller", std::to_string(ends[1]).c_str(), "--machine-id",
           "00000000000000000000000000000001", "--max-bytes", argc == 3 ? argv[2] : "1000000000", "--max-fds", "10000",
           "--max-matches", "100000", "--max-objects", "100000", nullptr);
    fail("start 'dbus-broker'");
}
