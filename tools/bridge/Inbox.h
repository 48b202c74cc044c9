// Events of one machine on their way in: each once, in order, and none left out without being counted.
#pragma once

#include "Store.h"

class Inbox {
public:
    enum Decision {
        Take,      ///< it is the next one
        Duplicate, ///< it was taken before
        Gap        ///< one before it is missing and can still come: drop this one, and ask for them again
    };

    explicit Inbox(const Mark& mark = {}) : m_mark(mark) {}

    /// What becomes of an event with that number of that publisher, which follows the one with the number `after`; 0 when
    /// nothing before it can still be sent. Of a publisher that nothing was taken of, it begins with that oldest: it may
    /// have been waiting for this machine. Without a publisher, from a client that does not count, every event is the next
    /// one.
    Decision decide(const QByteArray& publisher, quint64 number, quint64 after) const {
        if (publisher.isEmpty())
            return Take;
        const quint64 taken = publisher == m_mark.publisher ? m_mark.number : 0;
        if (number <= taken)
            return Duplicate;
        return after <= taken ? Take : Gap;
    }

    /// It was taken.
    void take(const QByteArray& publisher, quint64 number) {
        if (publisher.isEmpty())
            return;
        if (publisher == m_mark.publisher)
            m_missed += static_cast<qint64>(number - m_mark.number - 1);
        m_mark = {publisher, number};
    }

    const Mark& mark() const { return m_mark; }

    /// Events that their publisher had dropped before they got here.
    qint64 missed() const { return m_missed; }

private:
    Mark m_mark;
    qint64 m_missed = 0;
};
