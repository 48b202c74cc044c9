// A connection that is sent everything that passes on a bus.
#include "recording/Monitor.h"

#include "recording/Header.h"

#include "wire/Message.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace recording {

namespace {

constexpr std::size_t usualBuffer = 1 << 20;
constexpr std::size_t mostAtOnce = 8 << 20;       // bytes in one read(): then the caller has its turn again
constexpr int answerMs = 25000;                   // what libdbus itself takes for its own questions
constexpr dbus_uint32_t questionNumber = 0x10000; // beyond those of the few that libdbus has sent before

class BusError {
public:
    ~BusError() { dbus_error_free(&m_error); }
    DBusError* operator&() { return &m_error; }
    std::string text() const { return m_error.message ? m_error.message : "it does not say why"; }

private:
    DBusError m_error = DBUS_ERROR_INIT;
};

wire::Message callToBus(const char* interface, const char* method) {
    return wire::made(dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, interface, method));
}

void append(DBusMessage* to, const char* text) {
    if (!dbus_message_append_args(to, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID))
        throw std::bad_alloc();
}

wire::Message questionFor(const std::vector<std::string>& rules) {
    wire::Message question = callToBus("org.freedesktop.DBus.Monitoring", "BecomeMonitor");
    std::vector<const char*> texts;
    for (const std::string& rule : rules)
        texts.push_back(rule.c_str());
    const char** const first = texts.data();
    const dbus_uint32_t flags = 0;
    if (!dbus_message_append_args(question.get(), DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &first,
                                  static_cast<int>(texts.size()), DBUS_TYPE_UINT32, &flags, DBUS_TYPE_INVALID))
        throw std::bad_alloc();
    dbus_message_set_serial(question.get(), questionNumber);
    return question;
}

bool waitFor(int descriptor, short events) {
    pollfd wanted{descriptor, events, 0};
    int count = 0;
    do
        count = poll(&wanted, 1, answerMs);
    while (count < 0 && errno == EINTR);
    return count > 0;
}

bool writeAll(int descriptor, const QByteArray& bytes) {
    for (int written = 0; written < bytes.size();) {
        const ssize_t count = send(descriptor, bytes.constData() + written,
                                   static_cast<std::size_t>(bytes.size() - written), MSG_NOSIGNAL);
        if (count > 0)
            written += static_cast<int>(count);
        else if (errno != EINTR && (errno != EAGAIN || !waitFor(descriptor, POLLOUT)))
            return false;
    }
    return true;
}

// Messages may carry descriptors. They are nobody's here.
void closeDescriptors(msghdr& received) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&received); part; part = CMSG_NXTHDR(&received, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS)
            continue;
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t index = 0; index < count; ++index) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(part) + index * sizeof descriptor, sizeof descriptor);
            close(descriptor);
        }
    }
}

} // namespace

void Monitor::Close::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

Monitor::Connection Monitor::connect(const std::string& address) {
    BusError error;
    Connection connection(dbus_connection_open_private(address.c_str(), &error));
    if (!connection)
        throw Error(error.text());
    dbus_connection_set_exit_on_disconnect(connection.get(), false);
    if (!dbus_bus_register(connection.get(), &error))
        throw Error(error.text());
    return connection;
}

Monitor::Monitor(const std::string& address, std::vector<std::string> rules) : m_buffer(usualBuffer) {
    const Connection asker = connect(address); // a monitor cannot ask
    if (!rules.empty()) {
        // Names, whatever else is wanted: those that come and go, and the answers to askWhoIsThere().
        const std::string name = dbus_bus_get_unique_name(asker.get());
        rules.insert(rules.end(),
                     {"type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'",
                      "type='method_call',sender='" + name + "'", "type='method_return',destination='" + name + "'"});
    }
    // A stranger may have sent something here, of which libdbus has then read a part: the rest would be no message.
    constexpr int mostAttempts = 5;
    for (int attempt = 1;; ++attempt) {
        m_connection = connect(address);
        m_ownName = dbus_bus_get_unique_name(m_connection.get());
        m_begin = m_end = 0;
        if (!dbus_connection_get_socket(m_connection.get(), &m_descriptor))
            throw Error("the bus is reached over nothing that can be waited for");
        if (becomeMonitor(rules))
            break;
        if (attempt == mostAttempts)
            throw Error("the bus ends the connection");
    }
    askWhoIsThere(asker);
}

Monitor::~Monitor() = default;

bool Monitor::becomeMonitor(const std::vector<std::string>& rules) {
    if (!writeAll(m_descriptor, wire::toBytes(questionFor(rules).get())))
        return false;
    bool isAnswered = false;
    std::string refusal;
    while (!isAnswered) {
        if (!waitFor(m_descriptor, POLLIN))
            throw Error("the bus does not answer");
        // One message at a time: those behind the answer stay for the first read().
        if (!receive())
            return false;
        while (!isAnswered && m_end - m_begin >= fixedHeaderSize) {
            const std::size_t size = messageSize(&m_buffer[m_begin]);
            if (size == 0)
                return false;
            if (size > m_end - m_begin)
                break;
            const std::string_view message(&m_buffer[m_begin], size);
            m_begin += size;
            Header header;
            if (!readHeader(message, header) || header.answers != questionNumber)
                continue;
            isAnswered = true;
            if (header.type == Type::Error)
                refusal = "the bus refuses a monitor: " + std::string(header.error);
        }
    }
    if (!refusal.empty())
        throw Error(refusal);
    return true;
}

// The answers are not looked at here: they pass the monitor, between what changes meanwhile, in the order of the bus.
void Monitor::askWhoIsThere(const Connection& connection) {
    const auto ask = [&](const char* method, const char* name) {
        const wire::Message question = callToBus(DBUS_INTERFACE_DBUS, method);
        append(question.get(), name);
        if (!dbus_connection_send(connection.get(), question.get(), nullptr))
            throw std::bad_alloc();
    };
    const auto answerTo = [&](const char* method) {
        BusError error;
        const wire::Message question = callToBus(DBUS_INTERFACE_DBUS, method);
        wire::Message answer(
            dbus_connection_send_with_reply_and_block(connection.get(), question.get(), answerMs, &error));
        if (!answer)
            throw Error("the bus does not say who is there: " + error.text());
        return answer;
    };
    const wire::Message names = answerTo("ListNames");
    DBusMessageIter list, name;
    if (!dbus_message_has_signature(names.get(), "as") || !dbus_message_iter_init(names.get(), &list))
        throw Error("the bus does not say who is there");
    dbus_message_iter_recurse(&list, &name);
    for (; dbus_message_iter_get_arg_type(&name) == DBUS_TYPE_STRING; dbus_message_iter_next(&name)) {
        const char* text = nullptr;
        dbus_message_iter_get_basic(&name, &text);
        if (*text != ':')
            ask("GetNameOwner", text);
        ask("GetConnectionUnixProcessID", text);
    }
    answerTo("GetId"); // which is answered after all others
}

bool Monitor::receive() {
    if (m_begin == m_end)
        m_begin = m_end = 0;
    if (m_end == m_buffer.size() || (m_begin > 0 && m_end - m_begin < m_buffer.size() / 4)) {
        std::memmove(m_buffer.data(), &m_buffer[m_begin], m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_end - m_begin >= fixedHeaderSize)
        m_buffer.resize(std::max(m_buffer.size(), messageSize(&m_buffer[m_begin])));
    iovec place{&m_buffer[m_end], m_buffer.size() - m_end};
    constexpr std::size_t mostDescriptors = 253; // the kernel's limit for one piece
    alignas(cmsghdr) char ancillary[CMSG_SPACE(mostDescriptors * sizeof(int))];
    msghdr piece{};
    piece.msg_iov = &place;
    piece.msg_iovlen = 1;
    piece.msg_control = ancillary;
    piece.msg_controllen = sizeof ancillary;
    const ssize_t count = recvmsg(m_descriptor, &piece, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    m_isFull = count > 0 && static_cast<std::size_t>(count) == place.iov_len;
    if (count < 0)
        return errno == EAGAIN || errno == EINTR;
    closeDescriptors(piece);
    m_end += static_cast<std::size_t>(count);
    return count > 0;
}

bool Monitor::cut(const Sink& sink) {
    while (m_end - m_begin >= fixedHeaderSize) {
        const std::size_t size = messageSize(&m_buffer[m_begin]);
        if (size == 0)
            return false;
        if (size > m_end - m_begin)
            return true;
        const std::string_view message(&m_buffer[m_begin], size);
        m_begin += size;
        sink(message);
    }
    return true;
}

bool Monitor::read(const Sink& sink) {
    if (m_hasEnded)
        return false;
    // What was said to this connection itself, such as that it has lost its name, did not pass between others.
    const Sink others = [&](std::string_view message) {
        Header header;
        if (readHeader(message, header) && header.destination != m_ownName)
            sink(message);
    };
    std::size_t taken = 0;
    do {
        const std::size_t before = m_end - m_begin;
        m_hasEnded = !receive();
        taken += m_end - m_begin - before;
        if (!cut(others))
            m_hasEnded = true;
    } while (m_isFull && !m_hasEnded && taken < mostAtOnce);
    if (m_begin == m_end && m_buffer.size() > usualBuffer) { // one long message does not cost memory for ever
        m_buffer.resize(usualBuffer);
        m_buffer.shrink_to_fit();
        m_begin = m_end = 0;
    }
    return !m_hasEnded;
}

} // namespace recording
