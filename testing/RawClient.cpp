// A bus client made of libdbus alone.
#include "testing/RawClient.h"

#include "bus/BusNames.h"

namespace {

struct Unref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, Unref>;

void appendText(DBusMessageIter& iterator, const QByteArray& text) {
    const char* bytes = text.constData();
    dbus_message_iter_append_basic(&iterator, DBUS_TYPE_STRING, &bytes);
}

void appendWrapped(DBusMessageIter& iterator, int wrapping, qint32 value) {
    DBusMessageIter inner;
    dbus_message_iter_open_container(&iterator, DBUS_TYPE_VARIANT, wrapping > 0 ? "v" : "i", &inner);
    if (wrapping > 0)
        appendWrapped(inner, wrapping - 1, value);
    else
        dbus_message_iter_append_basic(&inner, DBUS_TYPE_INT32, &value);
    dbus_message_iter_close_container(&iterator, &inner);
}

void appendDefaultOf(DBusMessageIter& iterator, DBusSignatureIter& type) {
    const int kind = dbus_signature_iter_get_current_type(&type);
    if (dbus_type_is_basic(kind)) {
        static const DBusBasicValue zero{};
        const char* text = kind == DBUS_TYPE_OBJECT_PATH ? "/" : "";
        const void* value = kind == DBUS_TYPE_STRING || kind == DBUS_TYPE_OBJECT_PATH || kind == DBUS_TYPE_SIGNATURE
                                ? static_cast<const void*>(&text)
                                : static_cast<const void*>(&zero);
        dbus_message_iter_append_basic(&iterator, kind, value);
        return;
    }
    DBusMessageIter inner;
    if (kind == DBUS_TYPE_VARIANT) {
        const dbus_bool_t yes = TRUE;
        dbus_message_iter_open_container(&iterator, kind, "b", &inner);
        dbus_message_iter_append_basic(&inner, DBUS_TYPE_BOOLEAN, &yes);
    } else {
        DBusSignatureIter element;
        dbus_signature_iter_recurse(&type, &element);
        char* contained = kind == DBUS_TYPE_ARRAY ? dbus_signature_iter_get_signature(&element) : nullptr;
        dbus_message_iter_open_container(&iterator, kind, contained, &inner);
        dbus_free(contained);
        do {
            appendDefaultOf(inner, element);
        } while (kind != DBUS_TYPE_ARRAY && dbus_signature_iter_next(&element));
    }
    dbus_message_iter_close_container(&iterator, &inner);
}

} // namespace

void RawClient::Close::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

RawClient::RawClient() {
    m_connection.reset(dbus_bus_get_private(DBUS_BUS_SESSION, nullptr));
    if (m_connection)
        dbus_connection_set_exit_on_disconnect(m_connection.get(), FALSE);
}

bool RawClient::sendSignal(const QString& sender, const QString& member,
                           const std::function<void(DBusMessageIter&)>& fill) {
    const Message message(dbus_message_new_signal(vel::bus::objectPath(sender).toUtf8().constData(),
                                                  vel::bus::commonInterface().toUtf8().constData(),
                                                  member.toUtf8().constData()));
    DBusMessageIter iterator;
    dbus_message_iter_init_append(message.get(), &iterator);
    fill(iterator);
    return send(message.get());
}

bool RawClient::send(DBusMessage* message) {
    return dbus_connection_send(m_connection.get(), message, nullptr);
}

QString RawClient::uniqueName() const {
    return QString::fromLatin1(dbus_bus_get_unique_name(m_connection.get()));
}

void RawClient::flush() {
    const Message question(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "GetId"));
    const Message answer(dbus_connection_send_with_reply_and_block(m_connection.get(), question.get(), -1, nullptr));
}

bool RawClient::waitForModule(const QString& name) {
    // A module answers this one from its event loop, as it delivers events. Others are answered by Qt's thread.
    const Message question(dbus_message_new_method_call(vel::bus::serviceName(name).toUtf8().constData(),
                                                        vel::bus::objectPath(name).toUtf8().constData(),
                                                        "org.freedesktop.DBus.Introspectable", "Introspect"));
    const Message answer(
        dbus_connection_send_with_reply_and_block(m_connection.get(), question.get(), DBUS_TIMEOUT_INFINITE, nullptr));
    while (const Message other{dbus_connection_pop_message(m_connection.get())}) {
    }
    return answer != nullptr;
}

bool RawClient::becomeMonitor() {
    const Message question(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_MONITORING, "BecomeMonitor"));
    DBusMessageIter iterator;
    dbus_message_iter_init_append(question.get(), &iterator);
    DBusMessageIter noRules;
    dbus_message_iter_open_container(&iterator, DBUS_TYPE_ARRAY, "s", &noRules);
    dbus_message_iter_close_container(&iterator, &noRules);
    const dbus_uint32_t noFlags = 0;
    dbus_message_iter_append_basic(&iterator, DBUS_TYPE_UINT32, &noFlags);
    DBusError error = DBUS_ERROR_INIT;
    const Message answer(dbus_connection_send_with_reply_and_block(m_connection.get(), question.get(), -1, &error));
    dbus_error_free(&error);
    return answer != nullptr;
}

QStringList RawClient::seenUntilSignal(const QString& member) {
    QStringList seen;
    while (dbus_connection_read_write(m_connection.get(), -1)) {
        while (const Message message{dbus_connection_pop_message(m_connection.get())}) {
            const QString name = QString::fromUtf8(dbus_message_get_member(message.get()));
            switch (dbus_message_get_type(message.get())) {
            case DBUS_MESSAGE_TYPE_METHOD_CALL:
                seen << QStringLiteral("call ") + name;
                break;
            case DBUS_MESSAGE_TYPE_METHOD_RETURN:
                seen << QStringLiteral("return");
                break;
            case DBUS_MESSAGE_TYPE_ERROR:
                seen << QStringLiteral("error ") + QString::fromUtf8(dbus_message_get_error_name(message.get()));
                break;
            default:
                seen << QStringLiteral("signal ") + name;
                if (name == member &&
                    vel::bus::commonInterface() == QString::fromUtf8(dbus_message_get_interface(message.get())))
                    return seen;
            }
        }
    }
    return seen;
}

void appendEvent(DBusMessageIter& iterator, const QByteArray& name, int count, int arguments, int types, int wrapping) {
    DBusMessageIter structure;
    dbus_message_iter_open_container(&iterator, DBUS_TYPE_STRUCT, nullptr, &structure);
    appendText(structure, name);
    appendText(structure, QByteArray());
    const qint32 countField = count;
    dbus_message_iter_append_basic(&structure, DBUS_TYPE_INT32, &countField);

    const auto appendMap = [&structure](const char* entrySignature, int entries, auto appendValue) {
        DBusMessageIter map;
        dbus_message_iter_open_container(&structure, DBUS_TYPE_ARRAY, entrySignature, &map);
        for (int entry = 0; entry < entries; ++entry) {
            DBusMessageIter pair;
            dbus_message_iter_open_container(&map, DBUS_TYPE_DICT_ENTRY, nullptr, &pair);
            appendText(pair, "key" + QByteArray::number(entry));
            appendValue(pair, entry);
            dbus_message_iter_close_container(&map, &pair);
        }
        dbus_message_iter_close_container(&structure, &map);
    };
    appendMap("{ss}", types, [](DBusMessageIter& pair, int) { appendText(pair, "int"); });
    appendMap("{sv}", arguments,
              [wrapping](DBusMessageIter& pair, int entry) { appendWrapped(pair, wrapping, entry); });
    dbus_message_iter_close_container(&iterator, &structure);
}

void appendBySignature(DBusMessageIter& iterator, const char* signature) {
    if (!*signature)
        return;
    DBusSignatureIter type;
    dbus_signature_iter_init(&type, signature);
    do {
        appendDefaultOf(iterator, type);
    } while (dbus_signature_iter_next(&type));
}
