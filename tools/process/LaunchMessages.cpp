// A request's texts go through a file in memory: a message of this kind of socket holds less than an environment may.
#include "process/LaunchMessages.h"

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace launch {

namespace {

// The texts' file, and those of a request.
constexpr int mostDescriptors = 5;

struct Head {
    char magic[8];
    std::uint32_t id;
    std::uint32_t given; // a bit for each descriptor of descriptorsOf() that comes along
};
constexpr char magic[8] = {'v', 'e', 'l', 'l', 'a', 'u', 'n', '1'};

void append(std::string& to, const std::string& text) {
    const auto length = static_cast<std::uint32_t>(text.size());
    to.append(reinterpret_cast<const char*>(&length), sizeof length);
    to.append(text);
}

void append(std::string& to, const std::vector<std::string>& texts) {
    const auto count = static_cast<std::uint32_t>(texts.size());
    to.append(reinterpret_cast<const char*>(&count), sizeof count);
    for (const std::string& text : texts)
        append(to, text);
}

// Reads what append() has written; nothing beyond its end, whatever stands there.
class Reader {
public:
    explicit Reader(const std::string& from) : m_from(from) {}

    bool readBytes(std::string& bytes) {
        const std::size_t length = number();
        if (!m_isGood || length > m_from.size() - m_at)
            return m_isGood = false;
        bytes.assign(m_from, m_at, length);
        m_at += length;
        return true;
    }

    bool read(std::string& text) { return readBytes(text) && text.find('\0') == std::string::npos; }

    bool read(std::vector<std::string>& texts) {
        const std::size_t count = number();
        for (std::size_t index = 0; m_isGood && index < count; ++index) {
            if (std::string text; read(text))
                texts.push_back(std::move(text));
            else
                m_isGood = false;
        }
        return m_isGood;
    }

private:
    std::size_t number() {
        std::uint32_t value = 0;
        if (m_from.size() - m_at < sizeof value) {
            m_isGood = false;
            return 0;
        }
        std::memcpy(&value, m_from.data() + m_at, sizeof value);
        m_at += sizeof value;
        return value;
    }

    const std::string& m_from;
    std::size_t m_at = 0;
    bool m_isGood = true;
};

bool writeAll(int file, const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t written = write(file, text.data() + at, text.size() - at);
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0)
            at += static_cast<std::size_t>(written);
    }
    return true;
}

bool readAll(int file, std::string& text) {
    struct stat status {};
    if (fstat(file, &status) != 0 || status.st_size < 0 || static_cast<std::size_t>(status.st_size) > longestTexts)
        return false;
    text.resize(static_cast<std::size_t>(status.st_size));
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t count = pread(file, &text[at], text.size() - at, static_cast<off_t>(at));
        if (count == 0 || (count < 0 && errno != EINTR))
            return false;
        if (count > 0)
            at += static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        if (isOpen())
            close(m_number);
        m_number = other.release();
    }
    return *this;
}

Descriptor::~Descriptor() {
    if (isOpen())
        close(m_number);
}

int Descriptor::release() {
    return std::exchange(m_number, -1);
}

int send(int socket, const Request& request) {
    std::string texts;
    append(texts, request.object);
    append(texts, request.arguments);
    append(texts, request.environment);
    append(texts, request.folder);
    append(texts, request.announcement);
    if (texts.size() > longestTexts)
        return E2BIG;
    const Descriptor file(memfd_create("vel-launch", MFD_CLOEXEC));
    if (!file.isOpen() || !writeAll(file.number(), texts))
        return errno;

    const Descriptor* const all[mostDescriptors] = {&file, &request.input, &request.output, &request.error,
                                                    &request.announce};
    int descriptors[mostDescriptors];
    std::size_t count = 0;
    Head head{{}, request.id, 0};
    std::memcpy(head.magic, magic, sizeof magic);
    for (int place = 0; place < mostDescriptors; ++place) {
        if (all[place]->isOpen()) {
            descriptors[count++] = all[place]->number();
            head.given |= 1u << place;
        }
    }
    iovec part{&head, sizeof head};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptors)] = {};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = CMSG_SPACE(count * sizeof(int));
    cmsghdr* const rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(count * sizeof(int));
    std::memcpy(CMSG_DATA(rights), descriptors, count * sizeof(int));
    return sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? errno : 0;
}

bool receive(int socket, Request& request) {
    Head head{};
    iovec part{&head, sizeof head};
    int numbers[mostDescriptors];
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof numbers)] = {};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t length = 0;
    do
        length = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    while (length < 0 && errno == EINTR);

    // Whatever came is closed again when it is not wanted.
    Descriptor file;
    Descriptor* const all[mostDescriptors] = {&file, &request.input, &request.output, &request.error,
                                              &request.announce};
    const cmsghdr* const rights = length < 0 ? nullptr : CMSG_FIRSTHDR(&message);
    const std::size_t count = rights ? (rights->cmsg_len - CMSG_LEN(0)) / sizeof(int) : 0;
    if (rights)
        std::memcpy(numbers, CMSG_DATA(rights), count * sizeof(int));
    std::size_t taken = 0;
    for (int place = 0; place < mostDescriptors; ++place) {
        if (head.given & 1u << place && taken < count)
            *all[place] = Descriptor(numbers[taken++]);
    }
    if (length != sizeof head || std::memcmp(head.magic, magic, sizeof magic) != 0 || taken != count)
        return false;
    request.id = head.id;
    std::string texts;
    if (!readAll(file.number(), texts))
        return false;
    Reader reader(texts);
    return reader.read(request.object) && reader.read(request.arguments) && reader.read(request.environment) &&
           reader.read(request.folder) && reader.readBytes(request.announcement) && !request.arguments.empty();
}

void send(int socket, const Reply& reply) {
    ::send(socket, &reply, sizeof reply, MSG_NOSIGNAL);
}

int receive(int socket, Reply& reply) {
    ssize_t length = 0;
    do
        length = recv(socket, &reply, sizeof reply, MSG_DONTWAIT);
    while (length < 0 &&
           (errno == EINTR || errno == ECONNRESET)); // reset: requests were left; what was said comes after
    if (length == sizeof reply) {
        reply.reason[sizeof reply.reason - 1] = '\0';
        return 1;
    }
    return length < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : -1;
}

} // namespace launch
