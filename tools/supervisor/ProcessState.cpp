// Every thread is looked at: one that is inside a long write to the disk goes on writing after the first one has stopped.
#include "ProcessState.h"

#include <QDir>
#include <QFile>

namespace {

QByteArray fieldOf(const QByteArray& status, const char* name) {
    const int start = status.indexOf(name);
    if (start < 0)
        return {};
    const int value = start + static_cast<int>(qstrlen(name));
    return status.mid(value, status.indexOf('\n', value) - value).trimmed();
}

QByteArray readStatus(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

ProcessState stateOf(pid_t process) {
    const QString tasks = QString("/proc/%1/task").arg(process);
    int alive = 0;
    int stopped = 0;
    const QStringList threads = QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& thread : threads) {
        const QByteArray status = readStatus(tasks + '/' + thread + "/status");
        const QByteArray state = fieldOf(status, "\nState:").left(1);
        if (state.isEmpty() || state == "Z" || state == "X")
            continue;
        if (fieldOf(status, "\nTracerPid:") != "0")
            return ProcessState::Traced;
        ++alive;
        stopped += state == "T";
    }
    if (alive == 0)
        return ProcessState::Gone;
    return stopped == alive ? ProcessState::Stopped : ProcessState::Running;
}

pid_t tracerOf(pid_t process) {
    return fieldOf(readStatus(QString("/proc/%1/status").arg(process)), "\nTracerPid:").toInt();
}
