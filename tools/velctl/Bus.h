// The connection to the bus, and the one place where the program waits.
#pragma once

#include "TimeLimit.h"

#include "wire/Message.h"

#include <QStringList>

#include <functional>
#include <map>
#include <vector>

namespace velctl {

/// How often to look at what no message announces, such as a process's state.
constexpr int lookEveryMs = 50;

/// A connection of its own to a bus, without Qt's event loop and without threads: messages are taken in
/// waitUntil(), and nowhere else. Nothing is started on demand, and no call waits longer than it is told to.
///
/// What is received and not yet looked at takes some megabytes at most; the bus keeps the rest.
///
/// Errors: every function that waits throws a Failure with NoBus when the connection ends; those that put a question
///         to the bus daemon one with TimeLimitReached when it does not answer.
class Bus {
public:
    using Handler = std::function<void(DBusMessage*)>;

    /// Connects to an address. Throws a Failure with NoBus when there is no bus.
    Bus(const TimeLimit& limit, const QString& address);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    const TimeLimit& limit() const { return m_limit; }
    QString uniqueName() const;

    /// Takes messages until the condition holds. False when `end` came first. The condition is looked at after
    /// messages came, and every so often when an interval is given.
    [[nodiscard]] bool waitUntil(const std::function<bool()>& condition, const QDeadlineTimer& end,
                                 int intervalMs = -1);

    /// Waits until the descriptor can be read; false when `end` came first.
    [[nodiscard]] bool waitForInput(int descriptor, const QDeadlineTimer& end);

    /// Sends a call that names its receiver, and returns its number. What answers is kept: see answerTo().
    quint32 send(wire::Message call);

    /// The answer to the call of that number, once it is there. A connection that was not called cannot answer.
    DBusMessage* answerTo(quint32 number) const;

    /// Drops the answer to a call, and takes none that comes later.
    void forget(quint32 number) { m_calls.erase(number); }

    /// Sends a call and waits for its answer; null when `end` came first.
    wire::Message call(wire::Message call, const QDeadlineTimer& end);

    /// Sends a signal, and returns when the bus daemon has it: sending only queues, and this process may end at once.
    void publish(DBusMessage* signal);

    /// Sends a message of any kind, and waits only while much is on the way already. What was posted last is with the bus
    /// after the next question to it.
    void post(DBusMessage* message);

    /// Takes a name, and from now on calls `handler` for each call that comes. Throws a Failure when somebody has the name.
    void answerAs(const QString& service, Handler handler);

    /// From now on `handler` is called for each signal that one of the rules matches, and for others: it has to look.
    /// Returns when the bus knows of the rules. A rule is what libdbus calls a match rule.
    void subscribe(const QStringList& rules, Handler handler);

    /// A method of the bus daemon's own interface, or of another one of it, with one text or none. Throws a Failure
    /// when it does not answer; an error is an answer.
    wire::Message ask(const char* method, const QString& argument = QString(),
                      const char* interface = DBUS_INTERFACE_DBUS);

    /// The names of all modules, sorted.
    QStringList modules();

    /// The unique name of the connection that answers for a module; empty when there is none.
    QString ownerOf(const QString& module);

    /// Its process; 0 when there is none, or when the bus does not tell.
    qint64 processOf(const QString& uniqueName);

private:
    void turn(int longestMs, int input);
    void take(DBusMessage* message);
    void requireConnection() const;

    struct Close {
        void operator()(DBusConnection* connection) const;
    };
    struct Expected {
        QByteArray from; ///< empty: whoever the bus lets answer
        wire::Message answer;
    };

    const TimeLimit m_limit;
    std::unique_ptr<DBusConnection, Close> m_connection;
    std::map<quint32, Expected> m_calls;
    std::vector<Handler> m_handlers;
    Handler m_answers; // to calls; null refuses them
    bool m_inputIsThere = false;
};

/// Follows the owner of a module's name through the bus daemon's announcements: waiting costs no questions then, and on
/// a busy machine none is left unanswered when the time is up.
class OwnerWatch {
public:
    OwnerWatch(Bus& bus, const QString& module);

    /// The unique name of the connection; empty when there is none.
    const QString& owner() const { return m_state->owner; }

private:
    struct State {
        QString owner;
        bool isAnnounced = false;
    };
    std::shared_ptr<State> m_state; // the bus's handler may outlive this
};

constexpr int longestText = 1 << 20;

/// Whether an answer is the bus daemon's own, and not the module's.
bool isFromBusDaemon(DBusMessage* answer);
bool isError(DBusMessage* answer);

/// The first argument of a message, when it is a text; else an empty one. Cut where it is longer than anybody reads.
QString firstText(DBusMessage* message);

/// A call to a connection, or to the owner of a name, without arguments.
wire::Message callTo(const QString& destination, const QString& path, const QString& interface, const QString& method);

} // namespace velctl
