// A D-Bus message, held, and kept as bytes.
#include "wire/Message.h"

#include <new>

namespace wire {

Message made(DBusMessage* message) {
    if (!message)
        throw std::bad_alloc();
    return Message(message);
}

QByteArray toBytes(DBusMessage* message) {
    if (dbus_message_get_serial(message) == 0)
        dbus_message_set_serial(message, 1);
    char* bytes = nullptr;
    int length = 0;
    if (!dbus_message_marshal(message, &bytes, &length))
        throw std::bad_alloc();
    const std::unique_ptr<char, void (*)(void*)> owned(bytes, dbus_free);
    return QByteArray(bytes, length);
}

Message fromBytes(const QByteArray& bytes) {
    if (bytes.size() < DBUS_MINIMUM_HEADER_SIZE ||
        dbus_message_demarshal_bytes_needed(bytes.constData(), bytes.size()) != bytes.size())
        throw Error("these bytes are not exactly one message");
    DBusError error = DBUS_ERROR_INIT;
    Message message(dbus_message_demarshal(bytes.constData(), bytes.size(), &error));
    if (!message) {
        const Error refusal(QString::fromUtf8(error.message));
        dbus_error_free(&error);
        throw refusal;
    }
    return message;
}

} // namespace wire
