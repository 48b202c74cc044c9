// A connection to a bus, of libdbus alone.
#include "testing/Connection.h"

namespace vel::testing {

void Connection::Close::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

Connection::Connection() {
    DBusError error = DBUS_ERROR_INIT;
    m_connection.reset(dbus_connection_open_private(qgetenv("DBUS_SESSION_BUS_ADDRESS").constData(), &error));
    if (m_connection) {
        dbus_connection_set_exit_on_disconnect(m_connection.get(), FALSE);
        if (!dbus_bus_register(m_connection.get(), &error))
            m_connection.reset();
    }
    if (!m_connection)
        m_error = QStringLiteral("cannot connect to the bus: ") + QString::fromUtf8(error.message);
    dbus_error_free(&error);
}

int Connection::fileDescriptor() const {
    int descriptor = -1;
    dbus_connection_get_unix_fd(m_connection.get(), &descriptor);
    return descriptor;
}

QString Connection::uniqueName() const {
    return m_connection ? QString::fromLatin1(dbus_bus_get_unique_name(m_connection.get())) : QString();
}

void Connection::close() {
    dbus_connection_close(m_connection.get());
}

quint32 Connection::send(DBusMessage* message) {
    dbus_uint32_t serial = 0;
    if (!m_connection || !dbus_connection_send(m_connection.get(), message, &serial))
        return 0;
    dbus_connection_flush(m_connection.get());
    return serial;
}

Message Connection::callBus(DBusMessage* question) {
    if (!m_connection)
        return nullptr;
    DBusError error = DBUS_ERROR_INIT;
    Message answer(
        dbus_connection_send_with_reply_and_block(m_connection.get(), question, DBUS_TIMEOUT_INFINITE, &error));
    if (!answer)
        m_error = QString::fromUtf8(error.message);
    dbus_error_free(&error);
    return answer;
}

Message Connection::take() {
    if (!m_connection)
        return nullptr;
    Message message(dbus_connection_pop_message(m_connection.get()));
    while (!message && dbus_connection_read_write(m_connection.get(), 0) &&
           dbus_connection_get_dispatch_status(m_connection.get()) == DBUS_DISPATCH_DATA_REMAINS)
        message.reset(dbus_connection_pop_message(m_connection.get()));
    return message;
}

void Connection::wakeEventLoop() {
    if (m_connection && !m_notifier)
        m_notifier = std::make_unique<QSocketNotifier>(fileDescriptor(), QSocketNotifier::Read);
}

Message busCall(const char* interface, const char* method) {
    return Message(dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, interface, method));
}

} // namespace vel::testing
