// Events on their way out.
#include "Outbox.h"

#include "Log.h"

#include <QDateTime>
#include <QStringList>

#include <algorithm>
#include <utility>

namespace {

constexpr int mostUnacknowledged = 200;
constexpr quint64 mostUnconfirmed = 500; // by an online receiver: half of what Mosquitto queues for one
constexpr qint64 stuckMs = 2000;         // then a receiver that says nothing does not hold up the others
constexpr qint64 firstPatienceMs = 3000; // then what it has not said to have is sent again
constexpr qint64 longestPatienceMs = 60000;
constexpr int mostReceivers = 10000;

} // namespace

Outbox::Outbox(Store& store, const Limits& limits)
    : m_store(store), m_limits(limits), m_queue(store.events()), m_next(first()), m_acknowledged(m_next - 1) {
    for (const QueuedEvent& event : m_queue)
        m_bytes += event.payload.size();
    // A clock that was set in between must not make a receiver away for long: a tenth of the patience is always left.
    const qint64 longestAway = m_limits.awayMs - m_limits.awayMs / 10;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    for (const KnownReceiver& known : store.receivers()) {
        Receiver& receiver = m_receivers[known.machine];
        receiver.has = std::min(known.number, m_store.lastNumber());
        if (known.awaySince != 0)
            receiver.awaySince = -qBound(qint64(0), now - known.awaySince, longestAway);
    }
}

void Outbox::accept(const QByteArray& topic, const QByteArray& payload) {
    m_queue.push_back({m_store.lastNumber() + 1, topic, payload});
    m_store.append(m_queue.back());
    m_bytes += payload.size();
    ++m_accepted;
    const auto isOver = [this] { return count() > m_limits.events || (m_bytes > m_limits.bytes && count() > 1); };
    const quint64 oldest = m_queue.front().number;
    while (isOver())
        dropFirst();
    if (m_queue.front().number != oldest)
        m_store.removeUpTo(m_queue.front().number - 1);
    if (m_queue.front().number != oldest && !m_isFull) {
        m_isFull = true;
        logError(
            QString("cannot keep more than %1 events: the broker, or a machine that takes them, is away or slow; the "
                    "oldest are dropped from now on, see 'dropped' in the status")
                .arg(count()));
    }
}

void Outbox::dropFirst() {
    m_dropped += m_queue.front().isRefused ? 0 : 1;
    m_bytes -= m_queue.front().payload.size();
    m_queue.pop_front();
    m_next = std::max(m_next, first());
    m_acknowledged = std::max(m_acknowledged, first() - 1);
}

const QueuedEvent* Outbox::next(qint64 nowMs) {
    while (m_next <= m_store.lastNumber() && at(m_next).isRefused)
        ++m_next;
    if (m_next > m_store.lastNumber() || m_underWay.size() >= mostUnacknowledged)
        return nullptr;
    for (const Receiver& receiver : m_receivers) {
        if (receiver.isOnline && nowMs - receiver.progressAt < stuckMs && m_next > receiver.has + mostUnconfirmed)
            return nullptr;
    }
    return &at(m_next);
}

quint64 Outbox::before(quint64 number) const {
    for (quint64 one = number - 1; one >= first(); --one) {
        if (!m_queue[one - first()].isRefused)
            return one;
    }
    return 0;
}

void Outbox::sent(int packet) {
    m_underWay[packet] = m_next++;
    ++m_sent;
}

// Its number stays: those of the others do not change.
void Outbox::drop(QueuedEvent& event) {
    ++m_dropped;
    m_bytes -= event.payload.size();
    event.payload.clear();
    event.isRefused = true;
}

void Outbox::refuse() {
    drop(at(m_next));
    ++m_next;
    if (m_underWay.isEmpty())
        m_acknowledged = std::max(m_acknowledged, m_next - 1);
    release();
}

void Outbox::acknowledged(int packet, bool isRefused) {
    const quint64 number = m_underWay.take(packet);
    if (number == 0)
        return; // no event
    if (isRefused && number >= first() && !at(number).isRefused)
        drop(at(number));
    quint64 upTo = m_next - 1;
    for (const quint64 other : qAsConst(m_underWay))
        upTo = std::min(upTo, other - 1);
    m_acknowledged = std::max(m_acknowledged, upTo);
    release();
}

void Outbox::connected(qint64 nowMs) {
    for (Receiver& receiver : m_receivers)
        receiver.awaySince += nowMs - m_disconnectedAt;
}

void Outbox::disconnected(qint64 nowMs) {
    m_disconnectedAt = nowMs;
    for (const QString& machine : m_receivers.keys())
        receiverIs(machine, false, nowMs);
    m_store.commit();
    m_underWay.clear();
    goBackTo(m_acknowledged + 1);
}

void Outbox::goBackTo(quint64 number) {
    m_next = std::max(first(), std::min(m_next, number));
}

void Outbox::receiverHas(const QString& machine, const Mark& mark, const QByteArray& again, qint64 nowMs) {
    if (!m_receivers.contains(machine) && m_receivers.size() >= mostReceivers) {
        if (!std::exchange(m_isCrowded, true))
            logError(
                QString("cannot wait for '%1': there are %2 machines already that take events; it gets what is sent "
                        "while it is there, as others after it")
                    .arg(machine)
                    .arg(mostReceivers));
        return;
    }
    const bool isOurs = mark.publisher == m_store.publisher();
    // It begins with the oldest that there is when it has none of this store: see Inbox.
    const quint64 number = isOurs ? std::min(mark.number, m_store.lastNumber()) : first() - 1;
    const bool isNew = !m_receivers.contains(machine);
    Receiver& receiver = m_receivers[machine];
    if (isNew)
        receiver.awaySince = nowMs; // until its state comes
    const bool isAgain = isNew || again != receiver.again;
    if (!isAgain && (!isOurs || number <= receiver.has))
        return;
    receiver.again = again;
    receiver.has = number;
    receiver.progressAt = nowMs;
    receiver.patienceMs = firstPatienceMs;
    save(machine, receiver, nowMs);
    if (isAgain)
        goBackTo(number + 1);
    release();
}

void Outbox::save(const QString& machine, const Receiver& receiver, qint64 nowMs) {
    const qint64 awaySince = QDateTime::currentMSecsSinceEpoch() - (nowMs - receiver.awaySince);
    m_store.setReceiver({machine, receiver.has, receiver.isOnline ? 0 : awaySince});
}

void Outbox::receiverIs(const QString& machine, bool isOnline, qint64 nowMs) {
    const auto receiver = m_receivers.find(machine);
    if (receiver == m_receivers.end())
        return;
    receiver->isWaitedFor = receiver->isWaitedFor || isOnline;
    receiver->progressAt = nowMs;
    if (receiver->isOnline == isOnline)
        return;
    receiver->isOnline = isOnline;
    receiver->awaySince = nowMs;
    save(machine, *receiver, nowMs);
}

void Outbox::forget(const QString& machine) {
    if (m_receivers.remove(machine) > 0)
        m_store.removeReceiver(machine);
    release();
}

void Outbox::lookAtReceivers(qint64 nowMs) {
    for (auto one = m_receivers.begin(); one != m_receivers.end(); ++one) {
        Receiver& receiver = *one;
        if (!receiver.isOnline) {
            if (!receiver.isWaitedFor || nowMs - receiver.awaySince < m_limits.awayMs)
                continue;
            receiver.isWaitedFor = false;
            m_store.removeReceiver(one.key()); // it is saved again when it is back
        } else if (receiver.has < m_acknowledged && nowMs - receiver.progressAt > receiver.patienceMs) {
            receiver.progressAt = nowMs;
            receiver.patienceMs = std::min(std::max(2 * receiver.patienceMs, firstPatienceMs), longestPatienceMs);
            goBackTo(receiver.has + 1);
        }
    }
    release();
}

void Outbox::release() {
    quint64 upTo = m_acknowledged;
    for (const Receiver& receiver : qAsConst(m_receivers)) {
        if (receiver.isWaitedFor)
            upTo = std::min(upTo, receiver.has);
    }
    const quint64 oldest = first();
    while (!m_queue.empty() && (m_queue.front().number <= upTo || m_queue.front().isRefused)) {
        m_bytes -= m_queue.front().payload.size();
        m_queue.pop_front();
    }
    if (first() == oldest)
        return;
    m_store.removeUpTo(first() - 1);
    m_next = std::max(m_next, first());
    if (count() < m_limits.events / 2)
        m_isFull = false;
}
