// What outlives the bridge: events that were accepted and are not through yet, and how far those of others have come.
//
// A database of SQLite, written without waiting for the disk: what was committed survives the end of this process in any
// way, and the loss of power only as far as the kernel had written it.
#pragma once

#include <QByteArray>
#include <QString>

#include <deque>
#include <memory>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

/// An event on its way out.
struct QueuedEvent {
    quint64 number = 0;
    QByteArray topic;
    QByteArray payload;
    bool isRefused = false; ///< by the broker, for good
};

/// How far the events of one publisher, a machine's store, were taken.
struct Mark {
    QByteArray publisher; ///< empty: none yet
    quint64 number = 0;
};

/// A machine that takes this one's events.
struct KnownReceiver {
    QString machine;
    quint64 number = 0;   ///< it has them up to this one
    qint64 awaySince = 0; ///< milliseconds since the epoch; 0: it was there
};

/// Errors: when the file can no longer be written, one error line says so and the bridge goes on without it.
class Store {
public:
    Store();
    ~Store();

    /// False, with the reason, when the file is no store, another bridge has it, or it cannot be written.
    [[nodiscard]] bool open(const QString& fileName, QString& reason);

    /// A name of this store that no other one has.
    const QByteArray& publisher() const { return m_publisher; }

    /// The number last given to an event.
    quint64 lastNumber() const { return m_lastNumber; }

    /// Events that an earlier bridge has left behind, oldest first.
    std::deque<QueuedEvent> events();

    /// Taken with commit(): until then the event is not accepted.
    void append(const QueuedEvent& event);
    void removeUpTo(quint64 number);
    void setMark(const QByteArray& machine, const Mark& mark);
    void setReceiver(const KnownReceiver& receiver);
    void removeReceiver(const QString& machine);
    void commit();

    std::vector<KnownReceiver> receivers();
    Mark mark(const QByteArray& machine);

    bool isWritable() const { return m_isWritable; }

private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const;
    };
    struct Close {
        void operator()(sqlite3* database) const;
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

    bool execute(const char* sql);
    Statement prepare(const char* sql);
    void begin();
    void write(sqlite3_stmt* statement);
    void fail();

    std::unique_ptr<sqlite3, Close> m_database; // after the statements' end
    Statement m_append;
    Statement m_remove;
    Statement m_setMark;
    Statement m_setReceiver;
    Statement m_removeReceiver;
    Statement m_begin;
    Statement m_commit;
    QByteArray m_publisher;
    quint64 m_lastNumber = 0;
    bool m_isOpen = false; // a transaction
    bool m_isWritable = false;
};
