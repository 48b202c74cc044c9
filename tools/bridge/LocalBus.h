// A connection of its own to this machine's bus, in the event loop.
//
// Of libdbus alone, since a module from elsewhere has any path, any method and any arguments, and keeps its bytes: Qt's
// connection knows objects and types.
#pragma once

#include "wire/Message.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSocketNotifier>

#include <unordered_map>

Q_DECLARE_OPAQUE_POINTER(DBusMessage*)

/// Thread: the event loop's. Nothing here waits for the bus.
class LocalBus : public QObject {
    Q_OBJECT
public:
    /// Takes the answer to a call; null when it did not come in time or the bus is gone.
    using Answer = std::function<void(DBusMessage*)>;

    explicit LocalBus(QObject* parent = nullptr);
    ~LocalBus() override;

    /// Connects to the session bus. False, with the reason, when there is none.
    [[nodiscard]] bool open(QString& reason);

    /// What the bus calls this connection; empty until it has answered.
    const QByteArray& uniqueName() const { return m_uniqueName; }

    void send(DBusMessage* message);

    /// `take` is called once, later; -1 for a limit means none.
    void call(DBusMessage* message, Answer take, int limitMs = -1);

    /// A method of the bus itself.
    void ask(const char* method, const QStringList& texts, Answer take = {}, quint32 flags = 0);

    /// Whether everything that was sent is in the kernel's hands: the bus gets it whatever becomes of this process.
    bool hasSentAll() const;

    /// What waits to be sent, in bytes.
    long waiting() const;

Q_SIGNALS:
    /// A signal or a call that came. The message lives during the emission.
    void signalCame(DBusMessage* message);
    void callCame(DBusMessage* call);

    /// A part of what came has been handed out: more may come.
    void tookSome();

    /// hasSentAll() has become true again.
    void sentAll();

    /// The bus has ended the connection, or has ended.
    void lost();

private:
    struct Expected {
        Answer take;
        qint64 endsAt = -1; // of m_clock
        QByteArray from;    // whose answer it is; empty: whoever the bus lets answer
    };

    void turn();
    void takeMessage(DBusMessage* message);
    void watchWriting();
    void timerEvent(QTimerEvent*) override;

    struct Close {
        void operator()(DBusConnection* connection) const;
    };
    std::unique_ptr<DBusConnection, Close> m_connection;
    std::unique_ptr<QSocketNotifier> m_readable;
    std::unique_ptr<QSocketNotifier> m_writable;
    std::unordered_map<quint32, Expected> m_calls;
    QElapsedTimer m_clock;
    QByteArray m_uniqueName;
    int m_limitTimer = 0;
};
