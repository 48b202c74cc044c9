// The loggers of the process, and which of them the list holds at present.
//
// There is one logger for each name, and it lives as long as the process: callers keep the pointers, and may still
// log while static objects are destroyed. Taking the list down therefore only empties it; a name that comes back gets
// its old logger, with a fresh level. The list object itself is never destroyed either, for the same reason.
//
// The list is guarded by a mutex. The default logger is not: it is an atomic pointer that is never null, so that a
// line that is filtered out takes no lock.
#pragma once

#include "StandinLogger.h"

#include <QHash>
#include <QSet>

#include <atomic>
#include <mutex>

namespace vellogging {

class StandinLoggerList final : public LoggerList {
public:
    /// The one list, whether it is set up or not.
    static StandinLoggerList& ofProcess();

    void setUp(const QString& moduleName);
    void takeDown();

    StandinLogger* defaultLogger() const { return m_default.load(std::memory_order_acquire); }

    /// The logger of that name, which joins the list when it is not in it.
    StandinLogger* findOrCreate(const QString& name);

    /// The logger of that name, if the list is set up and holds it.
    StandinLogger* find(const QString& name) const;

    void update(const QString& facility, int level);

private:
    StandinLoggerList();

    StandinLogger* join(const QString& name);
    StandinLogger* lookUp(const QString& name) const;
    void becomeDefault(StandinLogger* logger);

    mutable std::mutex m_mutex;
    QHash<QString, StandinLogger*> m_all; // never shrinks
    QSet<QString> m_members;
    QString m_moduleName;
    int m_beginningLevel;
    bool m_isSetUp = false;
    std::atomic<StandinLogger*> m_default{nullptr};
};

} // namespace vellogging
