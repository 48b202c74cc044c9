// Every thread is looked at: one that is inside a long write to the disk goes on writing after the first one has stopped.
#include "process/ThreadStates.h"

#include "process/ProcessInfo.h"

#include <QDir>

namespace {

QByteArray fieldOf(const QByteArray& status, const char* name) {
    const int start = status.indexOf(name);
    if (start < 0)
        return {};
    const int value = start + static_cast<int>(qstrlen(name));
    return status.mid(value, status.indexOf('\n', value) - value).trimmed();
}

} // namespace

ThreadStates stateOf(pid_t process) {
    const QString tasks = QString("/proc/%1/task").arg(process);
    int alive = 0;
    int stopped = 0;
    const QStringList threads = QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& thread : threads) {
        const QByteArray status = procFile(process, ("task/" + thread.toLatin1() + "/status").constData());
        const QByteArray state = fieldOf(status, "\nState:").left(1);
        if (state.isEmpty() || state == "Z" || state == "X")
            continue;
        if (fieldOf(status, "\nTracerPid:") != "0")
            return ThreadStates::Traced;
        ++alive;
        stopped += state == "T";
    }
    if (alive == 0)
        return ThreadStates::Gone;
    return stopped == alive ? ThreadStates::Stopped : ThreadStates::Running;
}

pid_t tracerOf(pid_t process) {
    return fieldOf(procFile(process, "status"), "\nTracerPid:").toInt();
}
