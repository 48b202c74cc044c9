// The platform's logging interface for tests: it records the lines and leaves the filtering to the callers.
//
// Linked in the place of the logging library. A line is recorded even where the level forbids it, so that a test sees
// a line whose writer forgot to ask. With VEL_TEST_LOG set, each line also goes to stdout as "LOG SEVERITY: TEXT",
// for a parent process to read.
#pragma once

#include <QString>
#include <QStringList>

#include <deque>

/// The last 10,000 lines, in order, each as "SEVERITY: TEXT" with error, warning, info or debug. Thread: any.
QStringList recordedLines();

/// Forgets the lines and the level updates. Thread: any.
void clearRecordedLines();

/// Sets the level that every logger reports; 3 by default, or VEL_LOG_LEVEL. Thread: any.
void setRecordedLevel(int level);

/// One call of LoggerList::updateLoggerList(), which sets the level whatever the facility.
struct LevelUpdate {
    QString facility;
    int level;
};

/// The last 10,000 level updates, in order. Thread: any.
std::deque<LevelUpdate> recordedLevelUpdates();
