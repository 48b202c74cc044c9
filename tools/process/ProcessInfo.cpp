// What the kernel says about a process.
//
// How a saved module is told from one that somebody else stopped: it stops itself by running the program
// `kill` and waiting for its end. It is stopped before it can take note of that end, so a child of that name
// remains for as long as the module is stopped. Another's SIGSTOP leaves no such child.
#include "process/ProcessInfo.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <gnu/libc-version.h>
#include <unistd.h>

namespace {

// "PID (NAME) STATE PARENT ...": the name may hold anything, so the last parenthesis counts.
struct Stat {
    explicit Stat(qint64 pid) {
        const QByteArray text = procFile(pid, "stat");
        const int open = text.indexOf('(');
        const int close = text.lastIndexOf(')');
        if (open < 0 || close < open)
            return;
        name = QString::fromUtf8(text.mid(open + 1, close - open - 1));
        fields = text.mid(close + 2).split(' ');
    }
    QString name;
    QList<QByteArray> fields; // from the third on, in the numbering of proc(5)
    QByteArray field(int number) const { return fields.value(number - 3); }
};

constexpr int stateField = 3;
constexpr int parentField = 4;
constexpr int startTimeField = 22;
constexpr int residentPagesField = 24;

qint64 secondsSince(qint64 startTicks) {
    QFile file("/proc/uptime");
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    return static_cast<qint64>(file.readAll().split(' ').value(0).toDouble()) - startTicks / sysconf(_SC_CLK_TCK);
}

bool neededPreloading() {
    const QList<QByteArray> version = QByteArray(gnu_get_libc_version()).split('.');
    const int number = version.value(0).toInt() * 1000 + version.value(1).toInt();
    return number >= 2034;
}

} // namespace

QByteArray procFile(qint64 pid, const char* name) {
    QFile file(QString("/proc/%1/%2").arg(pid).arg(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

ProcessInfo processInfo(qint64 pid) {
    ProcessInfo info;
    info.pid = pid;
    const Stat stat(pid);
    if (pid <= 0 || stat.fields.isEmpty())
        return info;
    info.parent = stat.field(parentField).toLongLong();
    info.name = stat.name;
    info.state = stat.field(stateField).at(0);
    info.program = QFile::symLinkTarget(QString("/proc/%1/exe").arg(pid));
    if (info.program.isEmpty() || info.program.endsWith("/vel-launcher")) // a forked module's is told by its arguments
        info.program = QFile::decodeName(procFile(pid, "cmdline").split('\0').value(0));
    info.memory = stat.field(residentPagesField).toLongLong() * sysconf(_SC_PAGESIZE);
    info.uptime = secondsSince(stat.field(startTimeField).toLongLong());
    if (info.isStopped()) {
        const QList<ChildInfo> children = childrenOf(pid);
        info.isSaved =
            std::any_of(children.begin(), children.end(), [](const ChildInfo& child) { return child.name == "kill"; });
    }
    return info;
}

QList<ChildInfo> childrenOf(qint64 pid) {
    // Not /proc/PID/task/*/children: that file depends on how the kernel was built.
    QList<ChildInfo> children;
    for (const QString& entry : QDir("/proc").entryList(QDir::Dirs)) {
        const qint64 other = entry.toLongLong();
        if (other <= 0)
            continue;
        const Stat stat(other);
        if (stat.field(parentField).toLongLong() == pid)
            children.append({other, stat.name});
    }
    return children;
}

QString whyTracingWritesNothing(qint64 pid) {
    const QByteArray environment = procFile(pid, "environ");
    if (environment.isEmpty())
        return QString();
    QStringList missing;
    if (neededPreloading() && !procFile(pid, "maps").contains("libc_malloc_debug"))
        missing += "LD_PRELOAD=libc_malloc_debug.so.0";
    if (!('\0' + environment).contains(QByteArray("\0MALLOC_TRACE=", 14)))
        missing += "MALLOC_TRACE=FILE";
    return missing.isEmpty() ? QString() : "its process was started without " + missing.join(" and ");
}
