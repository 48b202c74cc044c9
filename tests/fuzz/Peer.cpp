// The other end of a Qt D-Bus connection.
#include "Peer.h"

#include "Target.h"

#include "bus/BusNames.h"

#include <QCoreApplication>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace fuzz {

namespace {

constexpr int fixedHeaderSize = 16; // where a message's length can be told

// On an interface that no target connects to.
const char lastInterface[] = "org.vel.fuzz.Peer";
const char lastMember[] = "last";

void writeAll(int socket, const char* bytes, int size) {
    while (size > 0) {
        const ssize_t written = ::send(socket, bytes, static_cast<std::size_t>(size), MSG_NOSIGNAL);
        require(written > 0 || errno == EINTR, "Qt's end takes what is sent");
        bytes += std::max<ssize_t>(written, 0);
        size -= static_cast<int>(std::max<ssize_t>(written, 0));
    }
}

int listenAt(const QByteArray& path) {
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    require(path.size() < static_cast<int>(sizeof address.sun_path), "the socket's path is short enough");
    std::copy(path.cbegin(), path.cend(), address.sun_path);
    require(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                listen(listening, 1) == 0,
            "there can be a socket");
    return listening;
}

// Numbers and texts in the byte order of the message.
class Header {
public:
    explicit Header(bool isBigEndian) : m_isBigEndian(isBigEndian) {}

    void number(quint32 value) {
        align(4);
        for (int byte = 0; byte < 4; ++byte)
            m_bytes.append(static_cast<char>(value >> 8 * (m_isBigEndian ? 3 - byte : byte)));
    }
    void field(char code, char type, const QByteArray& value) {
        align(8);
        m_bytes.append(code).append('\1').append(type).append('\0');
        if (type == DBUS_TYPE_SIGNATURE)
            m_bytes.append(static_cast<char>(value.size()));
        else
            number(static_cast<quint32>(value.size()));
        m_bytes.append(value).append('\0');
    }
    void align(int to) { m_bytes.append((to - m_bytes.size() % to) % to, '\0'); }

    QByteArray m_bytes;

private:
    const bool m_isBigEndian;
};

} // namespace

Message messageOf(const QByteArray& bytes) {
    return Message(dbus_message_demarshal(bytes.constData(), bytes.size(), nullptr));
}

// The header is ours, since nothing but libdbus reads it: what the reader of an event sees is the signature and the body.
Message signalOf(const QByteArray& input, const QByteArray& member) {
    const int end = input.indexOf('\0', 1);
    const QByteArray signature = input.mid(1, end - 1);
    const QByteArray body = input.mid(end + 1);
    if (end < 0 || signature.size() > DBUS_MAXIMUM_SIGNATURE_LENGTH)
        return nullptr;
    const bool isBigEndian = input.at(0) & 1;
    Header fields(isBigEndian); // begins at a multiple of 8 in the message, so it is aligned for itself
    fields.field(DBUS_HEADER_FIELD_PATH, DBUS_TYPE_OBJECT_PATH, "/Fuzz");
    fields.field(DBUS_HEADER_FIELD_INTERFACE, DBUS_TYPE_STRING, vel::bus::commonInterface().toLatin1());
    fields.field(DBUS_HEADER_FIELD_MEMBER, DBUS_TYPE_STRING, member);
    fields.field(DBUS_HEADER_FIELD_SIGNATURE, DBUS_TYPE_SIGNATURE, signature);

    Header header(isBigEndian);
    header.m_bytes.append(isBigEndian ? DBUS_BIG_ENDIAN : DBUS_LITTLE_ENDIAN)
        .append(static_cast<char>(DBUS_MESSAGE_TYPE_SIGNAL))
        .append('\0')
        .append(static_cast<char>(DBUS_MAJOR_PROTOCOL_VERSION));
    header.number(static_cast<quint32>(body.size()));
    header.number(1); // serial
    header.number(static_cast<quint32>(fields.m_bytes.size()));
    header.m_bytes.append(fields.m_bytes);
    header.align(8);
    return messageOf(header.m_bytes + body);
}

Peer::Peer() : m_connection(QString()) {
    const QByteArray path = QFile::encodeName(m_folder.filePath("peer"));
    const int listening = listenAt(path);
    m_connection = QDBusConnection::connectToPeer(QString("unix:path=") + QFile::decodeName(path), "fuzz");
    m_socket = accept(listening, nullptr, nullptr);
    close(listening);
    require(m_socket >= 0, "Qt connects");
    authenticate();
    require(m_connection.connect(QString(), QString(), QLatin1String(lastInterface), QLatin1String(lastMember), this,
                                 SLOT(heardLast())),
            "Qt hears signals");
}

Peer::~Peer() {
    QDBusConnection::disconnectFromPeer(m_connection.name());
    close(m_socket);
}

// The server's part: whoever asks is let in. Descriptors are agreed to, as a bus does, for Qt to read their type at
// all; none is ever sent.
void Peer::authenticate() {
    for (QByteArray line; line != "BEGIN";) {
        while (m_received.indexOf("\r\n") < 0)
            m_received += readSome();
        const int end = m_received.indexOf("\r\n");
        line = m_received.left(end);
        m_received.remove(0, end + 2);
        if (line.startsWith('\0'))
            line.remove(0, 1);
        const QByteArray answer = line.startsWith("AUTH EXTERNAL ")      ? "OK 0123456789abcdef0123456789abcdef\r\n"
                                  : line.startsWith("NEGOTIATE_UNIX_FD") ? "AGREE_UNIX_FD\r\n"
                                                                         : "ERROR\r\n";
        if (line != "BEGIN")
            writeAll(m_socket, answer.constData(), answer.size());
    }
}

QByteArray Peer::readSome() {
    QByteArray bytes(64 * 1024, Qt::Uninitialized);
    ssize_t size = -1;
    do {
        size = recv(m_socket, bytes.data(), static_cast<std::size_t>(bytes.size()), 0);
    } while (size < 0 && errno == EINTR);
    require(size > 0, "Qt keeps the connection");
    return bytes.left(static_cast<int>(size));
}

void Peer::send(DBusMessage* message) {
    char* bytes = nullptr;
    int size = 0;
    require(dbus_message_marshal(message, &bytes, &size), "a message has bytes");
    writeAll(m_socket, bytes, size);
    dbus_free(bytes);
}

Message Peer::receive() {
    const auto sizeOfNext = [this] {
        return m_received.size() < fixedHeaderSize
                   ? fixedHeaderSize
                   : dbus_message_demarshal_bytes_needed(m_received.constData(), m_received.size());
    };
    while (m_received.size() < sizeOfNext())
        m_received += readSome();
    const int size = sizeOfNext();
    Message message = messageOf(m_received.left(size));
    require(message != nullptr, "what Qt sends is a valid message");
    m_received.remove(0, size);
    return message;
}

void Peer::deliver(DBusMessage* message) {
    send(message);
    // The slots are called in the order of the messages: when the last one has been heard, so were all before.
    const Message last(dbus_message_new_signal("/Fuzz", lastInterface, lastMember));
    dbus_message_set_serial(last.get(), 1);
    send(last.get());
    for (m_hasHeardLast = false; !m_hasHeardLast;) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        require(m_connection.isConnected(), "Qt keeps the connection");
    }
}

} // namespace fuzz
