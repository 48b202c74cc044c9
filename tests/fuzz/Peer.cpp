// The other end of a Qt D-Bus connection, made of libdbus.
#include "Peer.h"

#include "Target.h"

#include "bus/BusNames.h"

#include <QCoreApplication>

namespace fuzz {

namespace {

// On an interface that no target connects to.
const char lastInterface[] = "org.vel.fuzz.Peer";
const char lastMember[] = "last";

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

// The header is ours, since nothing but libdbus reads it: what the reader of an event sees is the signature and the body.
RawMessage signalOf(const QByteArray& input, const QByteArray& member) {
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
    header.m_bytes.append(body);
    return RawMessage(dbus_message_demarshal(header.m_bytes.constData(), header.m_bytes.size(), nullptr));
}

void Peer::Close::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

Peer::Peer() : m_connection(QString()) {
    connect(&m_server, &QDBusServer::newConnection, this,
            [this](const QDBusConnection& qtsEnd) { m_connection = qtsEnd; });
    m_socket.reset(dbus_connection_open_private(m_server.address().toLatin1().constData(), nullptr));
    require(m_socket != nullptr, "Qt listens");
    dbus_connection_set_exit_on_disconnect(m_socket.get(), FALSE);
    dbus_connection_flush(m_socket.get());
    while (!m_connection.isConnected())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    require(m_connection.connect(QString(), QString(), lastInterface, lastMember, this, SLOT(heardLast())),
            "Qt hears signals");
}

RawMessage Peer::receive() {
    for (;;) {
        if (RawMessage message{dbus_connection_pop_message(m_socket.get())})
            return message;
        require(dbus_connection_read_write(m_socket.get(), -1), "Qt keeps the connection");
    }
}

void Peer::deliver(DBusMessage* message) {
    // The slots are called in the order of the messages: when the last one has been heard, so were all before.
    const RawMessage last(dbus_message_new_signal("/Fuzz", lastInterface, lastMember));
    for (DBusMessage* each : {message, last.get()})
        require(dbus_connection_send(m_socket.get(), each, nullptr), "a message is sent");
    dbus_connection_flush(m_socket.get());
    for (m_hasHeardLast = false; !m_hasHeardLast;) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        require(m_connection.isConnected(), "Qt keeps the connection");
    }
}

} // namespace fuzz
