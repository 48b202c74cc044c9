// What the kernel says about a process.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

struct ProcessInfo {
    qint64 pid = 0;
    qint64 parent = 0;
    QString name;
    char state = 0;       ///< the letter of /proc/PID/stat; 0 when there is no such process
    QString program;      ///< the path of the program; empty when the kernel does not tell
    qint64 memory = 0;    ///< bytes in main memory
    qint64 uptime = -1;   ///< seconds since the start
    bool isSaved = false; ///< stopped by its own `kill`, as a module stops itself for a save or a restore

    bool isStopped() const { return state == 'T'; }
    bool isTraced() const { return state == 't'; }
    bool hasEnded() const { return state == 0 || state == 'Z' || state == 'X'; }
};

/// What is known of the process now; `state` is 0 when there is none.
ProcessInfo processInfo(qint64 pid);

/// The whole of /proc/PID/NAME; empty when it cannot be read.
QByteArray procFile(qint64 pid, const char* name);

/// The names and process ids of a process's children, those included that have ended and were not waited for.
struct ChildInfo {
    qint64 pid;
    QString name;
};
QList<ChildInfo> childrenOf(qint64 pid);

/// Why switching on memory tracing will write nothing in that process; empty when it will, or when nobody
/// can tell.
QString whyTracingWritesNothing(qint64 pid);
