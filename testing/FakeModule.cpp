// A name on the bus, and a thread that answers for it.
//
// The thread waits for input and for being woken, nothing else. Two mutexes: one for what the test says, without which a
// Method runs, so that it may change answers itself; and one for the taking of messages, so that a question to the bus
// gets its own answer.
#include "testing/FakeModule.h"

#include "bus/BusNames.h"
#include "testing/Connection.h"
#include "testing/Values.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace vel::testing {

namespace {

enum class Manner { Answer, Hold, Vanish };

struct Behaviour {
    Manner manner = Manner::Answer;
    FakeModule::Method method;
};

} // namespace

class FakeModule::Private {
public:
    explicit Private(const QString& moduleName) : name(moduleName) {}

    void set(const QString& method, Behaviour behaviour) {
        const std::lock_guard<std::mutex> lock(mutex);
        behaviours[method] = std::move(behaviour);
    }

    void serve();
    void handle(Message question);
    void answer(DBusMessage* question, const Behaviour& behaviour);
    void refuse(DBusMessage* question, const QString& error, const QString& text);
    QString introspection();

    const QString name;
    std::mutex mutex;
    std::map<QString, Behaviour> behaviours;
    std::map<QString, std::vector<Message>> held;
    std::unique_ptr<Connection> connection;
    std::mutex taking;
    std::thread thread;
    int wake = -1;
    std::atomic<bool> isEnding{false};
};

void FakeModule::Private::serve() {
    pollfd inputs[] = {{connection->fileDescriptor(), POLLIN, 0}, {wake, POLLIN, 0}};
    const auto take = [this] {
        const std::lock_guard<std::mutex> lock(taking);
        return connection->take();
    };
    for (;;) {
        while (Message message = isEnding ? nullptr : take()) {
            if (dbus_message_get_type(message.get()) == DBUS_MESSAGE_TYPE_METHOD_CALL)
                handle(std::move(message));
        }
        if (isEnding || poll(inputs, 2, -1) < 0 || (inputs[0].revents & (POLLHUP | POLLERR)))
            return;
        eventfd_t times = 0;
        if (inputs[1].revents)
            eventfd_read(wake, &times);
    }
}

void FakeModule::Private::handle(Message question) {
    const QString method = QString::fromUtf8(dbus_message_get_member(question.get()));
    if (dbus_message_is_method_call(question.get(), DBUS_INTERFACE_INTROSPECTABLE, "Introspect")) {
        answer(question.get(), {Manner::Answer, [this](const QVariantList&) { return QVariantList{introspection()}; }});
        return;
    }
    Behaviour behaviour;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = behaviours.find(method);
        if (found != behaviours.end())
            behaviour = found->second;
        if (behaviour.manner == Manner::Hold) {
            held[method].push_back(std::move(question));
            return;
        }
    }
    if (behaviour.manner != Manner::Vanish) {
        answer(question.get(), behaviour);
        return;
    }
    connection->close();
    isEnding = true;
}

void FakeModule::Private::answer(DBusMessage* question, const Behaviour& behaviour) {
    if (!behaviour.method) {
        refuse(question, QStringLiteral(DBUS_ERROR_UNKNOWN_METHOD),
               QStringLiteral("the test gave '%1' no answer to '%2'")
                   .arg(name, QString::fromUtf8(dbus_message_get_member(question))));
        return;
    }
    QVariantList values;
    try {
        values = behaviour.method(readValues(question));
    } catch (const Failure& failure) {
        refuse(question, failure.name, failure.text);
        return;
    } catch (const std::exception& error) {
        refuse(question, QStringLiteral(DBUS_ERROR_FAILED), QString::fromUtf8(error.what()));
        return;
    }
    if (!std::all_of(values.begin(), values.end(), canAppend)) {
        refuse(question, QStringLiteral(DBUS_ERROR_FAILED), QStringLiteral("the test's answer cannot be sent"));
        return;
    }
    const Message reply(dbus_message_new_method_return(question));
    DBusMessageIter at;
    dbus_message_iter_init_append(reply.get(), &at);
    for (const QVariant& value : values)
        appendValue(&at, value);
    if (!dbus_message_get_no_reply(question))
        connection->send(reply.get());
}

void FakeModule::Private::refuse(DBusMessage* question, const QString& error, const QString& text) {
    const bool isName = bus::isValidInterfaceName(error); // an error's name has the form of an interface's
    const Message reply(dbus_message_new_error(question, isName ? error.toUtf8().constData() : DBUS_ERROR_FAILED,
                                               text.toUtf8().constData()));
    if (!dbus_message_get_no_reply(question))
        connection->send(reply.get());
}

QString FakeModule::Private::introspection() {
    QString methods;
    const std::lock_guard<std::mutex> lock(mutex);
    for (const auto& [method, behaviour] : behaviours)
        methods += QStringLiteral("<method name=\"%1\"/>").arg(method.toHtmlEscaped());
    return QStringLiteral("<node><interface name=\"%1\">%2</interface></node>").arg(bus::commonInterface(), methods);
}

FakeModule::FakeModule(const QString& name) : m(std::make_unique<Private>(name)) {}

FakeModule::~FakeModule() {
    vanish();
}

const QString& FakeModule::name() const {
    return m->name;
}

void FakeModule::answer(const QString& method, const QVariantList& values) {
    answerBy(method, [values](const QVariantList&) { return values; });
}

void FakeModule::answerBy(const QString& method, Method function) {
    m->set(method, {Manner::Answer, std::move(function)});
}

void FakeModule::fail(const QString& method, const Failure& why) {
    answerBy(method, [why](const QVariantList&) -> QVariantList { throw why; });
}

void FakeModule::hold(const QString& method) {
    m->set(method, {Manner::Hold, {}});
}

void FakeModule::vanishIn(const QString& method) {
    m->set(method, {Manner::Vanish, {}});
}

void FakeModule::release(const QString& method) {
    std::vector<Message> waiting;
    Behaviour behaviour;
    {
        const std::lock_guard<std::mutex> lock(m->mutex);
        waiting.swap(m->held[method]);
        behaviour = m->behaviours[method];
    }
    for (const Message& question : waiting)
        m->answer(question.get(), behaviour);
}

Result FakeModule::appear() {
    vanish();
    auto connection = std::make_unique<Connection>();
    if (!bus::isReachable(m->name))
        return Result::failure(QStringLiteral("'%1' is no name that a module can have on the bus").arg(m->name));
    const Message question = busCall(DBUS_INTERFACE_DBUS, "RequestName");
    DBusMessageIter at;
    dbus_message_iter_init_append(question.get(), &at);
    appendValue(&at, bus::serviceName(m->name));
    appendValue(&at, uint(DBUS_NAME_FLAG_DO_NOT_QUEUE));
    const Message answer = connection->callBus(question.get());
    if (!answer)
        return Result::failure(connection->error());
    if (readValues(answer.get()) != QVariantList{uint(DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER)})
        return Result::failure(QStringLiteral("'%1' is on the bus already").arg(m->name));
    m->connection = std::move(connection);
    m->wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m->isEnding = false;
    m->thread = std::thread([this] { m->serve(); });
    return Result::success();
}

void FakeModule::vanish() {
    if (!m->thread.joinable())
        return;
    const bool hasVanished = m->isEnding.exchange(true);
    eventfd_write(m->wake, 1);
    m->thread.join();
    close(m->wake);
    m->held.clear();
    if (!hasVanished) {
        // The bus forgets a connection when it next looks at its socket, and a name when it is asked to.
        const Message question = busCall(DBUS_INTERFACE_DBUS, "ReleaseName");
        DBusMessageIter at;
        dbus_message_iter_init_append(question.get(), &at);
        appendValue(&at, bus::serviceName(m->name));
        m->connection->callBus(question.get());
    }
    m->connection.reset();
}

Result FakeModule::publish(const QString& event, const QVariantMap& arguments) {
    if (!bus::isValidMemberName(event) || !std::all_of(arguments.begin(), arguments.end(), canAppend))
        return Result::failure(QStringLiteral("cannot publish '%1': its name or a value cannot be sent").arg(event));
    const Message signal(dbus_message_new_signal(bus::objectPath(m->name).toUtf8().constData(),
                                                 bus::commonInterface().toUtf8().constData(),
                                                 event.toUtf8().constData()));
    DBusMessageIter at;
    dbus_message_iter_init_append(signal.get(), &at);
    appendEvent(&at, event, arguments);
    if (!m->thread.joinable())
        return Result::failure(QStringLiteral("cannot publish '%1': '%2' is not on the bus").arg(event, m->name));
    Message answer;
    {
        const std::lock_guard<std::mutex> lock(m->taking);
        m->connection->send(signal.get());
        answer = m->connection->callBus(busCall(DBUS_INTERFACE_DBUS, "GetId").get());
    }
    eventfd_write(m->wake, 1); // a call may have come with the answer
    return answer ? Result::success()
                  : Result::failure(QStringLiteral("cannot publish '%1': %2").arg(event, m->connection->error()));
}

} // namespace vel::testing
