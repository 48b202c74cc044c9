// A bus client made of libdbus alone.
#include "testing/RawClient.h"

#include "bus/BusNames.h"

namespace {

void appendWrapped(DBusMessageIter& iterator, int wrapping, qint32 value) {
    RawContainer inner(iterator, DBUS_TYPE_VARIANT, wrapping > 0 ? "v" : "i");
    if (wrapping > 0)
        appendWrapped(inner, wrapping - 1, value);
    else
        inner.number(value);
}

void appendDefaultOf(DBusMessageIter& iterator, DBusSignatureIter& type) {
    const int kind = dbus_signature_iter_get_current_type(&type);
    if (dbus_type_is_basic(kind)) {
        DBusBasicValue value{};
        if (kind == DBUS_TYPE_STRING || kind == DBUS_TYPE_OBJECT_PATH || kind == DBUS_TYPE_SIGNATURE)
            value.str = const_cast<char*>(kind == DBUS_TYPE_OBJECT_PATH ? "/" : "");
        dbus_message_iter_append_basic(&iterator, kind, &value);
    } else if (kind == DBUS_TYPE_VARIANT) {
        RawContainer(iterator, kind, "b").flag(true);
    } else {
        DBusSignatureIter element;
        dbus_signature_iter_recurse(&type, &element);
        const std::unique_ptr<char, void (*)(void*)> contained(
            kind == DBUS_TYPE_ARRAY ? dbus_signature_iter_get_signature(&element) : nullptr, dbus_free);
        RawContainer inner(iterator, kind, contained.get());
        do {
            appendDefaultOf(inner, element);
        } while (kind != DBUS_TYPE_ARRAY && dbus_signature_iter_next(&element));
    }
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
    const RawMessage message(dbus_message_new_signal(vel::bus::objectPath(sender).toUtf8().constData(),
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
    const RawMessage question(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "GetId"));
    const RawMessage answer(dbus_connection_send_with_reply_and_block(m_connection.get(), question.get(), -1, nullptr));
}

bool RawClient::waitForModule(const QString& name) {
    // A module answers this one from its event loop, as it delivers events. Others are answered by Qt's thread.
    const RawMessage question(dbus_message_new_method_call(vel::bus::serviceName(name).toUtf8().constData(),
                                                           vel::bus::objectPath(name).toUtf8().constData(),
                                                           "org.freedesktop.DBus.Introspectable", "Introspect"));
    const RawMessage answer(
        dbus_connection_send_with_reply_and_block(m_connection.get(), question.get(), DBUS_TIMEOUT_INFINITE, nullptr));
    while (const RawMessage other{dbus_connection_pop_message(m_connection.get())}) {
    }
    return answer != nullptr;
}

bool RawClient::becomeMonitor() {
    const RawMessage question(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_MONITORING, "BecomeMonitor"));
    DBusMessageIter iterator;
    dbus_message_iter_init_append(question.get(), &iterator);
    { const RawContainer noRules(iterator, DBUS_TYPE_ARRAY, "s"); }
    const dbus_uint32_t noFlags = 0;
    dbus_message_iter_append_basic(&iterator, DBUS_TYPE_UINT32, &noFlags);
    DBusError error = DBUS_ERROR_INIT;
    const RawMessage answer(dbus_connection_send_with_reply_and_block(m_connection.get(), question.get(), -1, &error));
    dbus_error_free(&error);
    return answer != nullptr;
}

QStringList RawClient::seenUntilSignal(const QString& member) {
    QStringList seen;
    while (dbus_connection_read_write(m_connection.get(), -1)) {
        while (const RawMessage message{dbus_connection_pop_message(m_connection.get())}) {
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
    RawContainer structure(iterator, DBUS_TYPE_STRUCT);
    structure.text(name.constData());
    structure.text("");
    structure.number(count);
    const auto appendMap = [&structure](const char* entrySignature, int entries, auto appendValue) {
        RawContainer map(structure, DBUS_TYPE_ARRAY, entrySignature);
        for (int entry = 0; entry < entries; ++entry) {
            RawContainer pair(map, DBUS_TYPE_DICT_ENTRY);
            pair.text(("key" + QByteArray::number(entry)).constData());
            appendValue(pair, entry);
        }
    };
    appendMap("{ss}", types, [](RawContainer& pair, int) { pair.text("int"); });
    appendMap("{sv}", arguments, [wrapping](RawContainer& pair, int entry) { appendWrapped(pair, wrapping, entry); });
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
