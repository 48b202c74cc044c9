// The platform's logging interface for tests: it records the lines and leaves the filtering to the callers.
#include "RecordingLogger.h"

#include "platform/VelLogger.h"

#include <QtGlobal>

#include <atomic>
#include <cstdio>
#include <mutex>

namespace {

int startingLevel() {
    bool isNumber = false;
    const int level = qEnvironmentVariableIntValue("VEL_LOG_LEVEL", &isNumber);
    return isNumber ? level : 3;
}

struct Record {
    std::mutex mutex;
    QStringList lines;
    std::deque<LevelUpdate> updates;
    QString moduleName;
    std::atomic<int> level{startingLevel()};
};

// A module that is sent a million messages shall not grow by what is recorded of them.
constexpr int mostKept = 10000;

// Never destroyed: tested code may log while static objects are.
Record& record() {
    static auto* const theRecord = new Record;
    return *theRecord;
}

void recordLine(const char* severity, const QString& text) {
    const QString line = QLatin1String(severity) + ": " + text;
    const std::lock_guard<std::mutex> lock(record().mutex);
    if (record().lines.size() == mostKept)
        record().lines.removeFirst();
    record().lines.append(line);
    if (qEnvironmentVariableIsSet("VEL_TEST_LOG")) {
        std::printf("LOG %s\n", line.toUtf8().constData());
        std::fflush(stdout);
    }
}

class RecordingLogger final : public VelLogger {
public:
    int level() override { return record().level; }
};

RecordingLogger& theLogger() {
    static auto* const theOne = new RecordingLogger;
    return *theOne;
}

class RecordingLoggerList final : public LoggerList {};

} // namespace

QStringList recordedLines() {
    const std::lock_guard<std::mutex> lock(record().mutex);
    return record().lines;
}

void clearRecordedLines() {
    const std::lock_guard<std::mutex> lock(record().mutex);
    record().lines.clear();
    record().updates.clear();
}

void setRecordedLevel(int level) {
    record().level = level;
}

std::deque<LevelUpdate> recordedLevelUpdates() {
    const std::lock_guard<std::mutex> lock(record().mutex);
    return record().updates;
}

VelLogger::~VelLogger() = default;
void VelLogger::error(const QString& text) {
    recordLine("error", text);
}
void VelLogger::warning(const QString& text) {
    recordLine("warning", text);
}
void VelLogger::info(const QString& text) {
    recordLine("info", text);
}
void VelLogger::debug(const QString& text) {
    recordLine("debug", text);
}
void VelLogger::debug(const char* text) {
    recordLine("debug", QString::fromUtf8(text));
}

LoggerList* LoggerList::_instance = nullptr;
LoggerList::~LoggerList() = default;

VelLogger* LoggerList::value(QString name) {
    const std::lock_guard<std::mutex> lock(record().mutex);
    return name.isEmpty() || name == record().moduleName ? &theLogger() : nullptr;
}

void LoggerList::updateLoggerList(LoggerList*, QString facility, int level) {
    const std::lock_guard<std::mutex> lock(record().mutex);
    if (record().updates.size() == mostKept)
        record().updates.pop_front();
    record().updates.push_back({facility, level});
    record().level = level;
}

VelLogger* logger(QString) {
    return &theLogger();
}

void initLoggerList(QString moduleName) {
    static auto* const list = new RecordingLoggerList;
    {
        const std::lock_guard<std::mutex> lock(record().mutex);
        record().moduleName = moduleName;
    }
    LoggerList::_instance = list;
}

void clearLoggerList() {
    LoggerList::_instance = nullptr;
}
