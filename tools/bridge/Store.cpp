// What outlives the bridge.
#include "Store.h"

#include "Log.h"

#include <QFile>
#include <QUuid>

#include <sqlite3.h>

namespace {

// The number last given stands beside the events: they go, and it must not be given again.
const char schema[] = "CREATE TABLE IF NOT EXISTS self (publisher BLOB NOT NULL, number INTEGER NOT NULL);"
                      "CREATE TABLE IF NOT EXISTS queue (number INTEGER PRIMARY KEY, topic BLOB NOT NULL, payload BLOB "
                      "NOT NULL);"
                      "CREATE TABLE IF NOT EXISTS marks (machine BLOB PRIMARY KEY, publisher BLOB NOT NULL, number "
                      "INTEGER NOT NULL) WITHOUT ROWID;"
                      "CREATE TABLE IF NOT EXISTS receivers (machine BLOB PRIMARY KEY, number INTEGER NOT NULL, away "
                      "INTEGER NOT NULL) WITHOUT ROWID;";

void bind(sqlite3_stmt* statement, int place, const QByteArray& bytes) {
    sqlite3_bind_blob(statement, place, bytes.constData(), bytes.size(), SQLITE_STATIC);
}

void bind(sqlite3_stmt* statement, int place, quint64 number) {
    sqlite3_bind_int64(statement, place, static_cast<qint64>(number));
}

QByteArray bytesAt(sqlite3_stmt* statement, int column) {
    const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
    return QByteArray(bytes, sqlite3_column_bytes(statement, column));
}

quint64 numberAt(sqlite3_stmt* statement, int column) {
    return static_cast<quint64>(sqlite3_column_int64(statement, column));
}

} // namespace

void Store::Finalize::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

void Store::Close::operator()(sqlite3* database) const {
    sqlite3_close_v2(database);
}

Store::Store() = default;

Store::~Store() {
    commit();
}

bool Store::open(const QString& fileName, QString& reason) {
    sqlite3* database = nullptr;
    sqlite3_open_v2(QFile::encodeName(fileName).constData(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                    nullptr);
    m_database.reset(database);
    // Exclusive: a second bridge with this file is refused, and no memory is shared.
    m_isWritable = database && execute("PRAGMA locking_mode=EXCLUSIVE") && execute("PRAGMA journal_mode=WAL") &&
                   execute("PRAGMA synchronous=OFF") && execute("PRAGMA cache_size=-256") &&
                   execute("PRAGMA journal_size_limit=4194304") && execute("BEGIN IMMEDIATE") && execute(schema) &&
                   execute("COMMIT");
    if (m_isWritable) {
        m_append = prepare("INSERT INTO queue VALUES (?, ?, ?)");
        m_remove = prepare("DELETE FROM queue WHERE number <= ?");
        m_setMark = prepare("REPLACE INTO marks VALUES (?, ?, ?)");
        m_setReceiver = prepare("REPLACE INTO receivers VALUES (?, ?, ?)");
        m_removeReceiver = prepare("DELETE FROM receivers WHERE machine = ?");
        m_begin = prepare("BEGIN");
        m_commit = prepare("COMMIT");
    }
    if (!m_isWritable || !m_append || !m_remove || !m_setMark || !m_setReceiver || !m_removeReceiver || !m_begin ||
        !m_commit) {
        reason = database ? QString::fromUtf8(sqlite3_errmsg(database)) : QString("there is no memory");
        return false;
    }
    const Statement self = prepare("SELECT publisher, number FROM self");
    if (self && sqlite3_step(self.get()) == SQLITE_ROW) {
        m_publisher = bytesAt(self.get(), 0);
        m_lastNumber = numberAt(self.get(), 1);
        const Statement last = prepare("SELECT max(number) FROM queue");
        if (last && sqlite3_step(last.get()) == SQLITE_ROW)
            m_lastNumber = std::max(m_lastNumber, numberAt(last.get(), 0));
        return true;
    }
    m_publisher = QUuid::createUuid().toRfc4122().toHex();
    const Statement insert = prepare("INSERT INTO self VALUES (?, 0)");
    if (insert) {
        bind(insert.get(), 1, m_publisher);
        write(insert.get());
    }
    commit();
    return m_isWritable;
}

std::deque<QueuedEvent> Store::events() {
    std::deque<QueuedEvent> events;
    const Statement all = prepare("SELECT number, topic, payload FROM queue ORDER BY number");
    while (all && sqlite3_step(all.get()) == SQLITE_ROW)
        events.push_back({numberAt(all.get(), 0), bytesAt(all.get(), 1), bytesAt(all.get(), 2)});
    return events;
}

void Store::append(const QueuedEvent& event) {
    m_lastNumber = event.number;
    if (!m_isWritable)
        return;
    bind(m_append.get(), 1, event.number);
    bind(m_append.get(), 2, event.topic);
    bind(m_append.get(), 3, event.payload);
    write(m_append.get());
}

void Store::removeUpTo(quint64 number) {
    if (!m_isWritable)
        return;
    bind(m_remove.get(), 1, number);
    write(m_remove.get());
    // The queue may be empty now: the number must not be given again.
    const Statement last = prepare("UPDATE self SET number = ?");
    if (!last)
        return fail();
    bind(last.get(), 1, m_lastNumber);
    write(last.get());
}

void Store::setMark(const QByteArray& machine, const Mark& mark) {
    if (!m_isWritable)
        return;
    bind(m_setMark.get(), 1, machine);
    bind(m_setMark.get(), 2, mark.publisher);
    bind(m_setMark.get(), 3, mark.number);
    write(m_setMark.get());
}

void Store::setReceiver(const KnownReceiver& receiver) {
    if (!m_isWritable)
        return;
    const QByteArray machine = receiver.machine.toUtf8();
    bind(m_setReceiver.get(), 1, machine);
    bind(m_setReceiver.get(), 2, receiver.number);
    bind(m_setReceiver.get(), 3, static_cast<quint64>(receiver.awaySince));
    write(m_setReceiver.get());
}

void Store::removeReceiver(const QString& machine) {
    if (!m_isWritable)
        return;
    const QByteArray name = machine.toUtf8();
    bind(m_removeReceiver.get(), 1, name);
    write(m_removeReceiver.get());
}

std::vector<KnownReceiver> Store::receivers() {
    std::vector<KnownReceiver> receivers;
    const Statement all = prepare("SELECT machine, number, away FROM receivers");
    while (all && sqlite3_step(all.get()) == SQLITE_ROW)
        receivers.push_back({QString::fromUtf8(bytesAt(all.get(), 0)), numberAt(all.get(), 1),
                             static_cast<qint64>(numberAt(all.get(), 2))});
    return receivers;
}

void Store::commit() {
    if (!m_isOpen)
        return;
    m_isOpen = false;
    const int result = sqlite3_step(m_commit.get());
    sqlite3_reset(m_commit.get());
    if (result != SQLITE_DONE)
        fail();
}

Mark Store::mark(const QByteArray& machine) {
    const Statement row = prepare("SELECT publisher, number FROM marks WHERE machine = ?");
    if (!row)
        return {};
    bind(row.get(), 1, machine);
    return sqlite3_step(row.get()) == SQLITE_ROW ? Mark{bytesAt(row.get(), 0), numberAt(row.get(), 1)} : Mark{};
}

bool Store::execute(const char* sql) {
    return sqlite3_exec(m_database.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

Store::Statement Store::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(m_database.get(), sql, -1, &statement, nullptr);
    return Statement(statement);
}

void Store::begin() {
    if (m_isOpen)
        return;
    m_isOpen = sqlite3_step(m_begin.get()) == SQLITE_DONE;
    sqlite3_reset(m_begin.get());
}

void Store::write(sqlite3_stmt* statement) {
    begin();
    const int result = sqlite3_step(statement);
    sqlite3_reset(statement);
    if (result != SQLITE_DONE)
        fail();
}

void Store::fail() {
    if (!m_isWritable)
        return;
    m_isWritable = false;
    logError(QString("cannot write the store: %1; events that wait are kept in memory alone from now on, and are lost "
                     "when the bridge ends")
                 .arg(QString::fromUtf8(sqlite3_errmsg(m_database.get()))));
}
