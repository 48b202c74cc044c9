// A connection of its own to this machine's bus, in the event loop.
#include "LocalBus.h"

#include <QStringList>
#include <QTimer>

#include <vector>

namespace {

constexpr int messagesPerTurn = 200; // then others have their turn
constexpr int limitLookMs = 100;     // how often calls without an answer are looked at

void require(bool done) {
    if (!done)
        throw std::bad_alloc();
}

bool isFromBus(DBusMessage* message) {
    return dbus_message_has_sender(message, DBUS_SERVICE_DBUS);
}

} // namespace

void LocalBus::Close::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

LocalBus::LocalBus(QObject* parent) : QObject(parent) {
    m_clock.start();
}

LocalBus::~LocalBus() = default;

bool LocalBus::open(QString& reason) {
    DBusError error = DBUS_ERROR_INIT;
    m_connection.reset(dbus_connection_open_private(qgetenv("DBUS_SESSION_BUS_ADDRESS").constData(), &error));
    if (!m_connection) {
        reason = QString::fromUtf8(error.message);
        dbus_error_free(&error);
        return false;
    }
    dbus_connection_set_exit_on_disconnect(m_connection.get(), false);
    int socket = -1;
    require(dbus_connection_get_socket(m_connection.get(), &socket));
    m_readable = std::make_unique<QSocketNotifier>(socket, QSocketNotifier::Read);
    m_writable = std::make_unique<QSocketNotifier>(socket, QSocketNotifier::Write);
    m_writable->setEnabled(false);
    connect(m_readable.get(), &QSocketNotifier::activated, this, &LocalBus::turn);
    connect(m_writable.get(), &QSocketNotifier::activated, this, &LocalBus::turn);
    ask("Hello", {}, [this](DBusMessage* answer) {
        const char* name = nullptr;
        if (answer && dbus_message_get_args(answer, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID))
            m_uniqueName = name;
    });
    return true;
}

void LocalBus::send(DBusMessage* message) {
    require(dbus_connection_send(m_connection.get(), message, nullptr));
    watchWriting();
}

void LocalBus::call(DBusMessage* message, Answer take, int limitMs) {
    quint32 number = 0;
    require(dbus_connection_send(m_connection.get(), message, &number));
    watchWriting();
    const char* const destination = dbus_message_get_destination(message);
    m_calls[number] = {std::move(take), limitMs < 0 ? -1 : m_clock.elapsed() + limitMs,
                       destination && *destination == ':' ? QByteArray(destination) : QByteArray()};
    if (limitMs >= 0 && m_limitTimer == 0)
        m_limitTimer = startTimer(limitLookMs);
}

void LocalBus::ask(const char* method, const QStringList& texts, Answer take, quint32 flags) {
    const wire::Message question =
        wire::made(dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, method));
    for (const QString& text : texts) {
        const QByteArray utf8 = text.toUtf8();
        const char* const content = utf8.constData();
        require(dbus_message_append_args(question.get(), DBUS_TYPE_STRING, &content, DBUS_TYPE_INVALID));
    }
    if (flags != 0)
        require(dbus_message_append_args(question.get(), DBUS_TYPE_UINT32, &flags, DBUS_TYPE_INVALID));
    call(
        question.get(), take ? std::move(take) : [](DBusMessage*) {});
}

bool LocalBus::hasSentAll() const {
    return !dbus_connection_has_messages_to_send(m_connection.get());
}

long LocalBus::waiting() const {
    return dbus_connection_get_outgoing_size(m_connection.get());
}

// Sending writes, too: what waited may be gone after it.
void LocalBus::watchWriting() {
    const bool wasWaiting = m_writable->isEnabled();
    m_writable->setEnabled(!hasSentAll());
    if (wasWaiting && !m_writable->isEnabled())
        Q_EMIT sentAll();
}

void LocalBus::turn() {
    dbus_connection_read_write(m_connection.get(), 0);
    for (int count = 0; count < messagesPerTurn; ++count) {
        const wire::Message message(dbus_connection_pop_message(m_connection.get()));
        if (!message)
            break;
        takeMessage(message.get());
    }
    Q_EMIT tookSome();
    watchWriting();
    if (dbus_connection_get_dispatch_status(m_connection.get()) == DBUS_DISPATCH_DATA_REMAINS)
        QTimer::singleShot(0, this, &LocalBus::turn);
    if (!dbus_connection_get_is_connected(m_connection.get()) && m_readable->isEnabled()) {
        m_readable->setEnabled(false);
        m_writable->setEnabled(false);
        Q_EMIT lost();
    }
}

void LocalBus::takeMessage(DBusMessage* message) {
    switch (dbus_message_get_type(message)) {
    case DBUS_MESSAGE_TYPE_METHOD_RETURN:
    case DBUS_MESSAGE_TYPE_ERROR: {
        const auto call = m_calls.find(dbus_message_get_reply_serial(message));
        if (call == m_calls.end() || (!call->second.from.isEmpty() && !isFromBus(message) &&
                                      call->second.from != dbus_message_get_sender(message)))
            return;
        const Answer take = std::move(call->second.take);
        m_calls.erase(call);
        return take(message);
    }
    case DBUS_MESSAGE_TYPE_SIGNAL:
        Q_EMIT signalCame(message);
        return;
    case DBUS_MESSAGE_TYPE_METHOD_CALL:
        Q_EMIT callCame(message);
        return;
    }
}

void LocalBus::timerEvent(QTimerEvent*) {
    const qint64 now = m_clock.elapsed();
    std::vector<Answer> late;
    bool areMore = false;
    for (auto call = m_calls.begin(); call != m_calls.end();) {
        if (call->second.endsAt < 0 || call->second.endsAt > now) {
            areMore = areMore || call->second.endsAt >= 0;
            ++call;
            continue;
        }
        late.push_back(std::move(call->second.take));
        call = m_calls.erase(call);
    }
    if (!areMore) {
        killTimer(m_limitTimer);
        m_limitTimer = 0;
    }
    for (const Answer& take : late)
        take(nullptr);
}
