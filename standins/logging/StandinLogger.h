// The one kind of logger there is: a Qt logging category with a level.
#pragma once

#include "platform/VelLogger.h"

#include <QByteArray>

#include <atomic>

namespace vellogging {

class StandinLogger final : public VelLogger {
public:
    /// A logger of the category "vel.NAME", or plainly "vel" when the name is empty.
    StandinLogger(const QString& name, int level);

    // Relaxed, because nothing else is published along with a level.
    int level() override { return m_level.load(std::memory_order_relaxed); }
    void setLevel(int level) { m_level.store(level, std::memory_order_relaxed); }

    const QByteArray& category() const { return m_category; }

private:
    std::atomic<int> m_level;
    const QByteArray m_category;
};

} // namespace vellogging
