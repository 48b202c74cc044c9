// The loggers of the process, and which of them the list holds at present.
#include "StandinLoggerList.h"

#include "LogPattern.h"

#include <QtGlobal>

#include <utility>

namespace vellogging {
namespace {

int startingLevel() {
    constexpr int withoutEnvironment = 4; // errors and warnings
    bool isNumber = false;
    const int level = qEnvironmentVariableIntValue("VEL_LOG_LEVEL", &isNumber);
    return isNumber ? level : withoutEnvironment;
}

} // namespace

StandinLoggerList& StandinLoggerList::ofProcess() {
    // Made on first use, since other libraries' static objects may log before ours exist; never deleted, since they
    // may also log after ours are gone.
    static auto* const list = new StandinLoggerList;
    return *list;
}

StandinLoggerList::StandinLoggerList() : m_beginningLevel(startingLevel()) {
    becomeDefault(join(QString()));
}

void StandinLoggerList::setUp(const QString& moduleName) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_beginningLevel = startingLevel();
    m_moduleName = moduleName;
    becomeDefault(join(moduleName));
    // Loggers asked for earlier are in the list as well, and begin anew with it.
    for (const QString& name : std::as_const(m_members))
        m_all.value(name)->setLevel(m_beginningLevel);
    m_isSetUp = true;
}

void StandinLoggerList::takeDown() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isSetUp = false;
    m_beginningLevel = startingLevel();
    m_moduleName.clear();
    m_members.clear();
    becomeDefault(join(QString()));
}

StandinLogger* StandinLoggerList::findOrCreate(const QString& name) {
    if (name.isEmpty())
        return defaultLogger();
    const std::lock_guard<std::mutex> lock(m_mutex);
    return join(name);
}

StandinLogger* StandinLoggerList::find(const QString& name) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isSetUp)
        return nullptr;
    return lookUp(name.isEmpty() ? m_moduleName : name);
}

void StandinLoggerList::update(const QString& facility, int level) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isSetUp)
        return;
    if (!facility.isEmpty()) {
        if (StandinLogger* named = lookUp(facility))
            named->setLevel(level);
        return;
    }
    // Loggers still to come begin with this level too: whether a logger obeys must not depend on whether its first
    // line came before or after the update.
    m_beginningLevel = level;
    for (const QString& name : std::as_const(m_members))
        m_all.value(name)->setLevel(level);
}

StandinLogger* StandinLoggerList::join(const QString& name) {
    StandinLogger*& logger = m_all[name];
    if (!logger)
        logger = new StandinLogger(name, m_beginningLevel);
    else if (!m_members.contains(name))
        logger->setLevel(m_beginningLevel);
    m_members.insert(name);
    return logger;
}

StandinLogger* StandinLoggerList::lookUp(const QString& name) const {
    return m_members.contains(name) ? m_all.value(name) : nullptr;
}

void StandinLoggerList::becomeDefault(StandinLogger* logger) {
    m_default.store(logger, std::memory_order_release);
}

} // namespace vellogging

using vellogging::StandinLoggerList;

LoggerList* LoggerList::_instance = nullptr;

LoggerList::~LoggerList() = default;

VelLogger* LoggerList::value(QString name) {
    return static_cast<StandinLoggerList*>(this)->find(name);
}

void LoggerList::updateLoggerList(LoggerList* list, QString facility, int level) {
    if (list)
        static_cast<StandinLoggerList*>(list)->update(facility, level);
}

VelLogger* logger(QString name) {
    return StandinLoggerList::ofProcess().findOrCreate(name);
}

void initLoggerList(QString moduleName) {
    vellogging::setPatternUnlessChosen();
    StandinLoggerList::ofProcess().setUp(moduleName);
    LoggerList::_instance = &StandinLoggerList::ofProcess();
}

void clearLoggerList() {
    LoggerList::_instance = nullptr;
    StandinLoggerList::ofProcess().takeDown();
}
