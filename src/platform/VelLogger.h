// The platform's logging library, as this system calls it.
//
// libvel carries no logging of its own: it finds these operations in the module's process, in libvellogging.so.1 or
// in whatever library with the same interface stands in its place. The classes declare no data members on purpose:
// what an implementation keeps is its own affair, and replacing it needs no rebuild of libvel.
#pragma once

#include "platform/VelExport.h"

#include <QString>

/// The threshold of each severity: a line passes when the level is strictly greater.
enum class VelSeverity { Error = 2, Warning = 3, Info = 5, Debug = 6 };

/// One destination of log lines, with a current level.
///
/// A level is a syslog priority; which lines it lets pass says VelSeverity. A level of 0 or below silences everything.
///
/// Thread:   every operation may be called from any thread.
class VEL_EXPORT VelLogger {
public:
    virtual ~VelLogger();

    /// The logger's current level.
    virtual int level() = 0;

    void error(const QString& text);   ///< Writes one line of the severity error.
    void warning(const QString& text); ///< Writes one line of the severity warning.
    void info(const QString& text);    ///< Writes one line of the severity info.
    void debug(const QString& text);   ///< Writes one line of the severity debug.
    void debug(const char* text);      ///< Writes one line of the severity debug, from UTF-8.

protected:
    VelLogger() = default;

private:
    Q_DISABLE_COPY(VelLogger)
};

/// The loggers of this process.
class VEL_EXPORT LoggerList {
public:
    virtual ~LoggerList();

    /// The process's list: set by initLoggerList(), null before it and after clearLoggerList().
    static LoggerList* _instance;

    /// The logger called `name`, or null when the list holds none by that name. Creates nothing.
    VelLogger* value(QString name);

    /// Applies `level` to the loggers of `list` that `facility` names.
    void updateLoggerList(LoggerList* list, QString facility, int level);

protected:
    LoggerList() = default;

private:
    Q_DISABLE_COPY(LoggerList)
};

/// The logger called `name`; the empty name is the module's default logger. Never null.
VEL_EXPORT VelLogger* logger(QString name);

/// Sets up the process's logger list for the module of that name.
VEL_EXPORT void initLoggerList(QString moduleName);

/// Takes the list down again.
VEL_EXPORT void clearLoggerList();
