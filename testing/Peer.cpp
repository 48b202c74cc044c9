// Calls and publications through libdbus.
#include "testing/Peer.h"

#include "bus/BusNames.h"
#include "testing/Connection.h"
#include "testing/Expectation.h"
#include "testing/Values.h"

#include <algorithm>

namespace vel::testing {

namespace {

QString textOfAll(const QVariantList& values) {
    QStringList texts;
    for (const QVariant& value : values)
        texts << textOf(value);
    return texts.isEmpty() ? QStringLiteral("nothing") : texts.join(QStringLiteral(", "));
}

bool canSend(const QString& module, const QString& member) {
    return bus::isReachable(module) && bus::isValidMemberName(member);
}

} // namespace

QString Answer::text() const {
    return errorName.isEmpty() ? QStringLiteral("answered ") + textOfAll(values)
                               : QStringLiteral("failed with %1: %2").arg(errorName, errorText);
}

Result Answer::is(const QVariantList& expected) const {
    if (errorName.isEmpty() && textOfAll(values) == textOfAll(expected))
        return Result::success();
    return Result::failure(QStringLiteral("expected: answered %1\nbut it:   %2").arg(textOfAll(expected), text()));
}

Result Answer::failed(const QString& name, const QString& part) const {
    if (errorName == name && errorText.contains(part))
        return Result::success();
    return Result::failure(QStringLiteral("expected: failed with %1: ...%2...\nbut it:   %3").arg(name, part, text()));
}

Peer::Peer() : m_connection(std::make_unique<Connection>()) {
    m_connection->wakeEventLoop();
}

Peer::~Peer() = default;

Answer Peer::answerTo(DBusMessage* question) {
    const quint32 serial = m_connection->send(question);
    if (serial == 0)
        return {{}, QStringLiteral(DBUS_ERROR_DISCONNECTED), m_connection->error()};
    Message answer;
    const TimeLimit limit;
    const auto hasAnswer = [&] {
        do { // what else comes is an answer that came too late
            answer = m_connection->take();
        } while (answer && dbus_message_get_reply_serial(answer.get()) != serial);
        return answer != nullptr;
    };
    if (!waitUntil(hasAnswer, limit))
        return {{}, QStringLiteral(DBUS_ERROR_NO_REPLY), QStringLiteral("no answer ") + limit.text()};
    const QVariantList values = readValues(answer.get());
    if (dbus_message_get_type(answer.get()) == DBUS_MESSAGE_TYPE_ERROR)
        return {{}, QString::fromUtf8(dbus_message_get_error_name(answer.get())), values.value(0).toString()};
    return {values, {}, {}};
}

Answer Peer::call(const QString& module, const QString& method, const QVariantList& values) {
    if (!canSend(module, method) || !std::all_of(values.begin(), values.end(), canAppend))
        return {{},
                QStringLiteral(DBUS_ERROR_INVALID_ARGS),
                QStringLiteral("cannot call '%1.%2': a name or a value cannot be sent").arg(module, method)};
    const Message question(dbus_message_new_method_call(
        bus::serviceName(module).toUtf8().constData(), bus::objectPath(module).toUtf8().constData(),
        bus::commonInterface().toUtf8().constData(), method.toUtf8().constData()));
    DBusMessageIter at;
    dbus_message_iter_init_append(question.get(), &at);
    for (const QVariant& value : values)
        appendValue(&at, value);
    return answerTo(question.get());
}

Result Peer::publish(const QString& module, const QString& event, const QVariantMap& arguments) {
    if (!canSend(module, event) || !std::all_of(arguments.begin(), arguments.end(), canAppend))
        return Result::failure(
            QStringLiteral("cannot publish '%1' as '%2': a name or a value cannot be sent").arg(event, module));
    const Message signal(dbus_message_new_signal(bus::objectPath(module).toUtf8().constData(),
                                                 bus::commonInterface().toUtf8().constData(),
                                                 event.toUtf8().constData()));
    DBusMessageIter at;
    dbus_message_iter_init_append(signal.get(), &at);
    appendEvent(&at, event, arguments);
    if (m_connection->send(signal.get()) == 0)
        return Result::failure(QStringLiteral("cannot publish '%1': %2").arg(event, m_connection->error()));
    const Answer answer = answerTo(busCall(DBUS_INTERFACE_DBUS, "GetId").get());
    return answer ? Result::success()
                  : Result::failure(QStringLiteral("cannot publish '%1': the bus %2").arg(event, answer.text()));
}

Result Peer::waitForModule(const QString& module) {
    if (!bus::isReachable(module))
        return Result::failure(QStringLiteral("'%1' is no name that a module can have on the bus").arg(module));
    // A module answers this question from its event loop, as it delivers events. Others are answered by Qt's thread.
    const Message question(dbus_message_new_method_call(bus::serviceName(module).toUtf8().constData(),
                                                        bus::objectPath(module).toUtf8().constData(),
                                                        DBUS_INTERFACE_INTROSPECTABLE, "Introspect"));
    const Answer answer = answerTo(question.get());
    return answer ? Result::success() : Result::failure(QStringLiteral("'%1' %2").arg(module, answer.text()));
}

Answer Peer::state(const QString& module) {
    if (!bus::isReachable(module))
        return {{}, QStringLiteral(DBUS_ERROR_INVALID_ARGS), QStringLiteral("'%1' is no module's name").arg(module)};
    const Message question(dbus_message_new_method_call(bus::serviceName(module).toUtf8().constData(), "/vel/info",
                                                        DBUS_INTERFACE_PROPERTIES, "GetAll"));
    DBusMessageIter at;
    dbus_message_iter_init_append(question.get(), &at);
    appendValue(&at, bus::infoInterface());
    Answer answer = answerTo(question.get());
    if (answer)
        answer.values = {answer.value().toMap().value(QStringLiteral("State"))};
    return answer;
}

bool Peer::isOnBus(const QString& module) {
    const Message question = busCall(DBUS_INTERFACE_DBUS, "NameHasOwner");
    DBusMessageIter at;
    dbus_message_iter_init_append(question.get(), &at);
    appendValue(&at, bus::serviceName(module));
    return answerTo(question.get()).value().toBool();
}

} // namespace vel::testing
