// What stands in the messages between machines.
#include "Payload.h"

#include "bus/BusNames.h"
#include "wire/Event.h"
#include "wire/Json.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

QJsonObject objectIn(const QByteArray& payload) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(payload, &error);
    if (error.error != QJsonParseError::NoError)
        throw wire::Error(error.errorString());
    if (!document.isObject())
        throw wire::Error("it is no JSON object");
    return document.object();
}

QByteArray bodyOf(DBusMessage* message) {
    QByteArray json = R"({"body":[)";
    const wire::Sink to = [&json](const QByteArray& piece) { json += piece; };
    DBusMessageIter value;
    if (dbus_message_iter_init(message, &value)) {
        do {
            wire::writeTypedJson(&value, to);
            if (dbus_message_iter_has_next(&value))
                json += ',';
        } while (dbus_message_iter_next(&value));
    }
    return json + ']';
}

void appendBody(DBusMessage* message, const QJsonObject& json) {
    const QJsonValue body = json.value("body");
    if (!body.isArray() && !body.isUndefined())
        throw wire::Error("\"body\" is no list");
    wire::Appender to(message);
    for (const QJsonValue& value : body.toArray())
        wire::appendTypedJson(to, value.toObject());
}

// A text member that may be missing.
QString textIn(const QJsonObject& json, const char* key, const QString& otherwise) {
    const QJsonValue value = json.value(QLatin1String(key));
    if (!value.isUndefined() && !value.isString())
        throw wire::Error(QString("\"%1\" is no text").arg(key));
    return value.toString(otherwise);
}

} // namespace

QString whyNotToSend(DBusMessage* message) {
    return dbus_message_contains_unix_fds(message) ? "a file descriptor means nothing on another machine" : QString();
}

QByteArray eventPayload(DBusMessage* event) {
    QByteArray json;
    json.reserve(512);
    wire::writeEventJson(event, [&json](const QByteArray& piece) { json += piece; });
    return json;
}

wire::Message eventIn(const QByteArray& payload, const QString& module, const QString& name) {
    QJsonObject json = objectIn(payload);
    if (textIn(json, "event", name) != name || textIn(json, "module", module) != module ||
        textIn(json, "path", vel::bus::objectPath(module)) != vel::bus::objectPath(module))
        throw wire::Error("it names another event or module than its topic");
    json.insert("event", name);
    return wire::eventFromJson(json, module);
}

QByteArray callPayload(DBusMessage* call, const QString& module) {
    QByteArray json = bodyOf(call);
    const char* const interface = dbus_message_get_interface(call);
    if (!interface)
        json += R"(,"interface":"")";
    else if (interface != vel::bus::commonInterface())
        json += R"(,"interface":)" + wire::jsonString(QByteArray(interface));
    if (dbus_message_get_path(call) != vel::bus::objectPath(module))
        json += R"(,"path":)" + wire::jsonString(QByteArray(dbus_message_get_path(call)));
    return json + '}';
}

wire::Message callIn(const QByteArray& payload, const QString& module, const QString& method) {
    const QJsonObject json = objectIn(payload);
    const QString interface = textIn(json, "interface", vel::bus::commonInterface());
    const QString path = textIn(json, "path", vel::bus::objectPath(module));
    if (!interface.isEmpty() && !vel::bus::isValidInterfaceName(interface))
        throw wire::Error("\"interface\" is no name of an interface");
    if (!vel::bus::isValidObjectPath(path))
        throw wire::Error("\"path\" is no path");
    wire::Message call = wire::made(dbus_message_new_method_call(
        vel::bus::serviceName(module).toUtf8().constData(), path.toUtf8().constData(),
        interface.isEmpty() ? nullptr : interface.toUtf8().constData(), method.toUtf8().constData()));
    dbus_message_set_auto_start(call.get(), false);
    appendBody(call.get(), json);
    return call;
}

QByteArray answerPayload(DBusMessage* answer) {
    QByteArray json = bodyOf(answer);
    if (const char* const error = dbus_message_get_error_name(answer))
        json += R"(,"error":)" + wire::jsonString(QByteArray(error));
    return json + '}';
}

QByteArray errorPayload(const QByteArray& name, const QString& text) {
    return R"({"body":[{"type":"s","value":)" + wire::jsonString(text) + R"(}],"error":)" + wire::jsonString(name) +
           '}';
}

wire::Message answerIn(const QByteArray& payload, DBusMessage* call) {
    const QJsonObject json = objectIn(payload);
    wire::Message answer = wire::made(dbus_message_new_method_return(call));
    if (json.contains("error")) {
        const QByteArray name = textIn(json, "error", {}).toUtf8();
        if (name.contains('\0') || !dbus_validate_error_name(name.constData(), nullptr))
            throw wire::Error("\"error\" is no name of an error");
        answer = wire::made(dbus_message_new_error(call, name.constData(), nullptr));
    }
    appendBody(answer.get(), json);
    return answer;
}
