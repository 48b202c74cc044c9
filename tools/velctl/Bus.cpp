// The connection to the bus, and the one place where the program waits.
#include "Bus.h"

#include "ModuleNames.h"
#include "Output.h"
#include "Status.h"

#include <algorithm>
#include <climits>

namespace velctl {

namespace {

constexpr long mostReceived = 8 << 20; // bytes in messages that wait here; libdbus reads no more while there are more
constexpr long mostToSend = 1 << 20;   // bytes of answers to strangers that wait here
constexpr int messagesPerTurn = 100;

class BusError {
public:
    ~BusError() { dbus_error_free(&m_error); }
    DBusError* operator&() { return &m_error; }
    QString text() const { return QString::fromUtf8(m_error.message); }

private:
    DBusError m_error = DBUS_ERROR_INIT;
};

void require(bool done) {
    if (!done)
        throw std::bad_alloc();
}

Failure noBus(const QString& address, const QString& reason) {
    return {
        NoBus,
        QString("cannot reach the bus '%1': %2; is DBUS_SESSION_BUS_ADDRESS that of the modules").arg(address, reason)};
}

int restOf(const QDeadlineTimer& end) {
    const qint64 rest = end.remainingTime();
    return rest < 0 ? -1 : static_cast<int>(std::min<qint64>(rest, INT_MAX));
}

int shorter(int one, int other) {
    return one < 0 ? other : other < 0 ? one : std::min(one, other);
}

void appendText(DBusMessage* to, const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    const char* const content = utf8.constData();
    require(dbus_message_append_args(to, DBUS_TYPE_STRING, &content, DBUS_TYPE_INVALID));
}

} // namespace

void Bus::Close::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

Bus::Bus(const TimeLimit& limit, const QString& address) : m_limit(limit) {
    if (address.isEmpty())
        throw noBus(address, "there is no address");
    dbus_connection_set_change_sigpipe(false); // it is for those who write the output: see Output.h
    BusError error;
    m_connection.reset(dbus_connection_open_private(address.toUtf8().constData(), &error));
    if (!m_connection)
        throw noBus(address, error.text());
    dbus_connection_set_exit_on_disconnect(m_connection.get(), false);
    dbus_connection_set_max_received_size(m_connection.get(), mostReceived);

    const quint32 number = send(callTo(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "Hello"));
    const auto isOver = [&] { return answerTo(number) || !dbus_connection_get_is_connected(m_connection.get()); };
    if (!waitUntil(isOver, m_limit.end()))
        throw Failure{TimeLimitReached,
                      QString("cannot reach the bus: it does not answer; gave up after %1").arg(m_limit.text())};
    DBusMessage* const answer = answerTo(number);
    if (!answer)
        throw noBus(address, "it ended the connection");
    if (isError(answer))
        throw noBus(address, firstText(answer));
    require(dbus_bus_set_unique_name(m_connection.get(), firstText(answer).toUtf8().constData()));
    m_calls.erase(number);
}

Bus::~Bus() = default;

QString Bus::uniqueName() const {
    return QString::fromUtf8(dbus_bus_get_unique_name(m_connection.get()));
}

void Bus::requireConnection() const {
    if (!dbus_connection_get_is_connected(m_connection.get()))
        throw Failure{NoBus, "cannot go on: the bus ended the connection; the bus is gone, or refused what was sent"};
}

bool Bus::waitUntil(const std::function<bool()>& condition, const QDeadlineTimer& end, int intervalMs) {
    while (!condition()) {
        requireConnection();
        if (end.hasExpired())
            return false;
        turn(shorter(restOf(end), intervalMs), -1);
    }
    return true;
}

bool Bus::waitForInput(int descriptor, const QDeadlineTimer& end) {
    m_inputIsThere = false;
    while (!m_inputIsThere) {
        requireConnection();
        if (end.hasExpired())
            return false;
        turn(restOf(end), descriptor);
    }
    return true;
}

// Sleeps until there is something to be done, and does a bounded part of it: whoever waits looks at the clock after
// each turn, however fast messages come.
void Bus::turn(int longestMs, int input) {
    DBusConnection* const connection = m_connection.get();
    QVector<pollfd> looked = Output::wanted();
    int socket = -1;
    dbus_connection_get_socket(connection, &socket);
    const bool isWriting = dbus_connection_has_messages_to_send(connection);
    looked.append({socket, short(isWriting ? POLLIN | POLLOUT : POLLIN), 0});
    looked.append({input, POLLIN, 0});
    const bool hasMore = dbus_connection_get_dispatch_status(connection) == DBUS_DISPATCH_DATA_REMAINS;
    poll(looked.data(), static_cast<nfds_t>(looked.size()), hasMore ? 0 : longestMs);
    Output::writeKept(looked);
    m_inputIsThere = input >= 0 && looked.last().revents != 0;
    dbus_connection_read_write(connection, 0);
    for (int count = 0; count < messagesPerTurn; ++count) {
        const wire::Message message(dbus_connection_pop_message(connection));
        if (!message)
            break;
        take(message.get());
    }
}

void Bus::take(DBusMessage* message) {
    switch (dbus_message_get_type(message)) {
    case DBUS_MESSAGE_TYPE_METHOD_RETURN:
    case DBUS_MESSAGE_TYPE_ERROR: {
        const auto call = m_calls.find(dbus_message_get_reply_serial(message));
        if (call != m_calls.end() &&
            (isFromBusDaemon(message) || call->second.from == dbus_message_get_sender(message)))
            call->second.answer.reset(dbus_message_ref(message));
        return;
    }
    case DBUS_MESSAGE_TYPE_SIGNAL:
        for (const Handler& handler : m_handlers)
            handler(message);
        return;
    case DBUS_MESSAGE_TYPE_METHOD_CALL:
        if (m_answers)
            return m_answers(message);
        // Somebody looks at every connection of the bus: he need not wait.
        if (!dbus_message_get_no_reply(message) && dbus_connection_get_outgoing_size(m_connection.get()) < mostToSend) {
            const wire::Message refusal =
                wire::made(dbus_message_new_error(message, DBUS_ERROR_UNKNOWN_METHOD, "velctl has no methods"));
            require(dbus_connection_send(m_connection.get(), refusal.get(), nullptr));
        }
        return;
    }
}

quint32 Bus::send(wire::Message call) {
    quint32 number = 0;
    require(dbus_connection_send(m_connection.get(), call.get(), &number));
    m_calls[number].from = dbus_message_get_destination(call.get());
    return number;
}

DBusMessage* Bus::answerTo(quint32 number) const {
    const auto call = m_calls.find(number);
    return call == m_calls.end() ? nullptr : call->second.answer.get();
}

wire::Message Bus::call(wire::Message call, const QDeadlineTimer& end) {
    const quint32 number = send(std::move(call));
    const bool isAnswered = waitUntil([&] { return answerTo(number) != nullptr; }, end);
    wire::Message answer = std::move(m_calls[number].answer);
    m_calls.erase(number);
    return isAnswered ? std::move(answer) : nullptr;
}

void Bus::publish(DBusMessage* signal) {
    require(dbus_connection_send(m_connection.get(), signal, nullptr));
    ask("GetId");
}

void Bus::post(DBusMessage* message) {
    constexpr long mostOnTheWay = 4 << 20;
    require(dbus_connection_send(m_connection.get(), message, nullptr));
    (void)waitUntil([&] { return dbus_connection_get_outgoing_size(m_connection.get()) < mostOnTheWay; },
                    QDeadlineTimer(QDeadlineTimer::Forever));
}

void Bus::answerAs(const QString& service, Handler handler) {
    m_answers = std::move(handler);
    wire::Message question = callTo(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "RequestName");
    appendText(question.get(), service);
    const dbus_uint32_t flags = DBUS_NAME_FLAG_DO_NOT_QUEUE;
    require(dbus_message_append_args(question.get(), DBUS_TYPE_UINT32, &flags, DBUS_TYPE_INVALID));
    const wire::Message answer = call(std::move(question), m_limit.lastMoment());
    dbus_uint32_t result = 0;
    if (answer && isError(answer.get()))
        throw Failure{Failed, QString("cannot be '%1': %2").arg(service, firstText(answer.get()))};
    if (!answer || !dbus_message_get_args(answer.get(), nullptr, DBUS_TYPE_UINT32, &result, DBUS_TYPE_INVALID) ||
        result != DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER)
        throw Failure{Failed, QString("cannot be '%1': somebody else has that name").arg(service)};
}

void Bus::subscribe(const QStringList& rules, Handler handler) {
    m_handlers.push_back(std::move(handler));
    for (const QString& rule : rules) {
        const wire::Message answer = ask("AddMatch", rule);
        if (isError(answer.get()))
            throw Failure{Failed, QString("cannot subscribe '%1': %2").arg(rule, firstText(answer.get()))};
    }
}

wire::Message Bus::ask(const char* method, const QString& argument, const char* interface) {
    wire::Message question = callTo(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, interface, method);
    if (!argument.isNull())
        appendText(question.get(), argument);
    wire::Message answer = call(std::move(question), m_limit.lastMoment());
    if (!answer)
        throw Failure{TimeLimitReached,
                      QString("cannot ask the bus for '%1': it does not answer; gave up").arg(method)};
    return answer;
}

QStringList Bus::modules() {
    const wire::Message answer = ask("ListNames");
    QStringList modules;
    DBusMessageIter list;
    if (!dbus_message_has_signature(answer.get(), "as") || !dbus_message_iter_init(answer.get(), &list))
        return modules;
    DBusMessageIter name;
    dbus_message_iter_recurse(&list, &name);
    for (; dbus_message_iter_get_arg_type(&name) == DBUS_TYPE_STRING; dbus_message_iter_next(&name)) {
        const char* text = nullptr;
        dbus_message_iter_get_basic(&name, &text);
        const QString module = moduleOfService(QString::fromUtf8(text));
        if (!module.isEmpty())
            modules += module;
    }
    modules.sort();
    return modules;
}

QString Bus::ownerOf(const QString& module) {
    const wire::Message answer = ask("GetNameOwner", serviceOf(module));
    return isError(answer.get()) ? QString() : firstText(answer.get());
}

qint64 Bus::processOf(const QString& uniqueName) {
    const wire::Message answer = ask("GetConnectionUnixProcessID", uniqueName);
    quint32 process = 0;
    if (dbus_message_has_signature(answer.get(), "u"))
        dbus_message_get_args(answer.get(), nullptr, DBUS_TYPE_UINT32, &process, DBUS_TYPE_INVALID);
    return process;
}

OwnerWatch::OwnerWatch(Bus& bus, const QString& module) : m_state(std::make_shared<State>()) {
    const QString service = serviceOf(module);
    bus.subscribe({QString("type='signal',sender='%1',interface='%2',member='NameOwnerChanged',arg0='%3'")
                       .arg(DBUS_SERVICE_DBUS, DBUS_INTERFACE_DBUS, service)},
                  [state = m_state, service](DBusMessage* signal) {
                      if (!isFromBusDaemon(signal) || !dbus_message_has_member(signal, "NameOwnerChanged") ||
                          firstText(signal) != service)
                          return;
                      const char *name = nullptr, *before = nullptr, *now = nullptr;
                      if (dbus_message_get_args(signal, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &before,
                                                DBUS_TYPE_STRING, &now, DBUS_TYPE_INVALID))
                          *state = {QString::fromUtf8(now), true};
                  });
    // After the subscription: what changes from now on is announced, and an announcement that came with the answer is
    // newer than the answer.
    const QString owner = bus.ownerOf(module);
    if (!m_state->isAnnounced)
        m_state->owner = owner;
}

bool isFromBusDaemon(DBusMessage* answer) {
    return dbus_message_has_sender(answer, DBUS_SERVICE_DBUS);
}

bool isError(DBusMessage* answer) {
    return dbus_message_get_type(answer) == DBUS_MESSAGE_TYPE_ERROR;
}

QString firstText(DBusMessage* message) {
    DBusMessageIter first;
    const char* text = nullptr;
    if (dbus_message_iter_init(message, &first) && dbus_message_iter_get_arg_type(&first) == DBUS_TYPE_STRING)
        dbus_message_iter_get_basic(&first, &text);
    return QString::fromUtf8(text, static_cast<int>(qstrnlen(text, longestText)));
}

wire::Message callTo(const QString& destination, const QString& path, const QString& interface, const QString& method) {
    wire::Message call =
        wire::made(dbus_message_new_method_call(destination.toUtf8().constData(), path.toUtf8().constData(),
                                                interface.toUtf8().constData(), method.toUtf8().constData()));
    dbus_message_set_auto_start(call.get(), false);
    return call;
}

} // namespace velctl
