// Events on their way out.
#include "Outbox.h"

#include "Log.h"

#include <QStringList>

#include <algorithm>

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
    m_bytes -= m_queue.front().payload.size();
    m_queue.pop_front();
    ++m_dropped;
    m_next = std::max(m_next, first());
    m_acknowledged = std::max(m_acknowledged, first() - 1);
}

const QueuedEvent* Outbox::next(qint64 nowMs) const {
    if (m_next > m_store.lastNumber() || m_underWay.size() >= mostUnacknowledged)
        return nullptr;
    for (const Receiver& receiver : m_receivers) {
        if (receiver.isOnline && nowMs - receiver.progressAt < stuckMs && m_next > receiver.has + mostUnconfirmed)
            return nullptr;
    }
    return &m_queue[m_next - first()];
}

void Outbox::sent(int packet) {
    m_underWay[packet] = m_next++;
    ++m_sent;
}

void Outbox::refuse() {
    ++m_dropped;
    ++m_next;
    if (m_underWay.isEmpty())
        m_acknowledged = std::max(m_acknowledged, m_next - 1);
    release();
}

void Outbox::acknowledged(int packet) {
    if (m_underWay.remove(packet) == 0)
        return; // no event
    quint64 upTo = m_next - 1;
    for (const quint64 number : qAsConst(m_underWay))
        upTo = std::min(upTo, number - 1);
    m_acknowledged = std::max(m_acknowledged, upTo);
    release();
}

void Outbox::disconnected() {
    m_underWay.clear();
    goBackTo(m_acknowledged + 1);
}

void Outbox::goBackTo(quint64 number) {
    m_next = std::max(first(), std::min(m_next, number));
}

void Outbox::receiverHas(const QString& machine, const Mark& mark, const QByteArray& again, qint64 nowMs) {
    if (!m_receivers.contains(machine) && m_receivers.size() >= mostReceivers)
        return;
    const bool isOurs = mark.publisher == m_store.publisher();
    Receiver& receiver = m_receivers[machine];
    const quint64 number = isOurs ? std::min(mark.number, m_store.lastNumber()) : m_next - 1; // a new one: from here on
    if (again != receiver.again) {
        receiver.again = again;
        receiver.has = number;
        receiver.progressAt = nowMs;
        receiver.patienceMs = firstPatienceMs;
        if (isOurs)
            goBackTo(number + 1);
    } else if (number > receiver.has && isOurs) {
        receiver.has = number;
        receiver.progressAt = nowMs;
        receiver.patienceMs = firstPatienceMs;
    }
    release();
}

void Outbox::receiverIs(const QString& machine, bool isOnline, qint64 nowMs) {
    const auto receiver = m_receivers.find(machine);
    if (receiver == m_receivers.end())
        return;
    receiver->isOnline = isOnline;
    receiver->isWaitedFor = receiver->isWaitedFor || isOnline;
    receiver->awaySince = nowMs;
    receiver->progressAt = nowMs;
}

void Outbox::forget(const QString& machine) {
    m_receivers.remove(machine);
    release();
}

void Outbox::lookAtReceivers(qint64 nowMs) {
    for (Receiver& receiver : m_receivers) {
        if (!receiver.isOnline) {
            receiver.isWaitedFor = receiver.isWaitedFor && nowMs - receiver.awaySince < m_limits.awayMs;
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
    if (m_queue.empty() || m_queue.front().number > upTo)
        return;
    while (!m_queue.empty() && m_queue.front().number <= upTo) {
        m_bytes -= m_queue.front().payload.size();
        m_queue.pop_front();
    }
    m_store.removeUpTo(upTo);
    m_next = std::max(m_next, first());
    if (count() < m_limits.events / 2)
        m_isFull = false;
}
