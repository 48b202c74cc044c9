// Events on their way out: what was accepted and is not through yet, and which of it is to be sent next.
//
// Accepted is an event that stands in the store. It leaves the queue when the broker has it and every machine that takes
// this machine's events has said that it is on its own bus. A broker that forgets, a session that ends and a receiver that
// is killed cost nothing, then: a receiver says how far it has come whenever it begins, and when one number is missing, and
// the events behind that are sent again. Who has them already drops them by their number.
//
// The receivers stand in the store, too: a broker that keeps nothing on disk cannot tell a bridge that begins who they are,
// and takes what is sent to nobody. A machine that is new gets what still waits for others, and all that follows.
//
// How much may be under way is limited, so that a broker's queue for one receiver (1,000 messages in Mosquitto) is enough.
#pragma once

#include "Store.h"

#include <QMap>

class Outbox {
public:
    struct Limits {
        int events;
        int bytes;
        qint64 awayMs; ///< a receiver away for longer is not waited for
    };

    Outbox(Store& store, const Limits& limits);

    /// Takes an event at the end of the queue. At the limit the oldest go.
    void accept(const QByteArray& topic, const QByteArray& payload);

    /// What was taken is accepted now.
    void commit() { m_store.commit(); }

    /// What is to be sent now; null when there is nothing, or enough is under way.
    const QueuedEvent* next(qint64 nowMs);

    /// The number of the event before that one; 0 when none before it can still be sent.
    quint64 before(quint64 number) const;

    /// It was sent, under that number of the connection.
    void sent(int packet);

    /// What is to be sent now cannot be sent at all, and is dropped.
    void refuse();

    /// The broker has it; or it wants it never, and it is dropped.
    void acknowledged(int packet, bool isRefused = false);

    /// While the broker is away, no receiver is counted as away.
    void connected(qint64 nowMs);
    void disconnected(qint64 nowMs);

    /// What a receiver has: `again` differs from the last time when it wants what is behind that once more.
    void receiverHas(const QString& machine, const Mark& mark, const QByteArray& again, qint64 nowMs);
    void receiverIs(const QString& machine, bool isOnline, qint64 nowMs);
    void forget(const QString& machine);

    /// Sends again what an online receiver has not said to have for long; and waits no longer for who is away for long.
    void lookAtReceivers(qint64 nowMs);

    /// The oldest number in the queue.
    quint64 first() const { return m_queue.empty() ? m_store.lastNumber() + 1 : m_queue.front().number; }
    qint64 count() const { return static_cast<qint64>(m_queue.size()); }
    qint64 bytes() const { return m_bytes; }
    qint64 accepted() const { return m_accepted; }
    qint64 sentCount() const { return m_sent; }
    qint64 dropped() const { return m_dropped; }
    QStringList receivers() const { return m_receivers.keys(); }

private:
    struct Receiver {
        quint64 has = 0;
        QByteArray again;
        bool isOnline = false;
        bool isWaitedFor = true;
        qint64 progressAt = 0;
        qint64 awaySince = 0; // while it is not online
        qint64 patienceMs = 0;
    };

    void save(const QString& machine, const Receiver& receiver, qint64 nowMs);
    QueuedEvent& at(quint64 number) { return m_queue[number - first()]; }
    void drop(QueuedEvent& event);
    void goBackTo(quint64 number);
    void release();
    void dropFirst();

    Store& m_store;
    const Limits m_limits;
    std::deque<QueuedEvent> m_queue; // with consecutive numbers
    quint64 m_next;                  // to be sent
    quint64 m_acknowledged;          // all up to this one, by the broker
    QMap<int, quint64> m_underWay;   // by packet
    QMap<QString, Receiver> m_receivers;
    qint64 m_disconnectedAt = 0;
    qint64 m_bytes = 0;
    qint64 m_accepted = 0;
    qint64 m_sent = 0;
    qint64 m_dropped = 0;
    bool m_isFull = false;
    bool m_isCrowded = false;
};
