// What a process that does not answer is waiting for: the system call of its main thread, and on what.
#include "process/WaitingFor.h"

#include "process/ProcessInfo.h"

#include <QStringList>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

enum class Subject { Nothing, Descriptor, Child };

struct CallRow {
    long number;
    const char* text;
    Subject subject;
};

// The system calls in which a program can stay. Not every architecture has all of them.
const CallRow calls[] = {
    {SYS_futex, "a lock or another thread (futex)", Subject::Nothing},
    {SYS_read, "input (read)", Subject::Descriptor},
    {SYS_write, "a reader of its output (write)", Subject::Descriptor},
    {SYS_fsync, "a disk (fsync)", Subject::Descriptor},
    {SYS_flock, "a file lock (flock)", Subject::Descriptor},
    {SYS_connect, "a connection (connect)", Subject::Descriptor},
    {SYS_ppoll, "input (ppoll)", Subject::Nothing},
    {SYS_pselect6, "input (pselect)", Subject::Nothing},
    {SYS_nanosleep, "a fixed time (nanosleep)", Subject::Nothing},
    {SYS_clock_nanosleep, "a fixed time (clock_nanosleep)", Subject::Nothing},
    {SYS_wait4, "the end of a child process (wait4)", Subject::Child},
    {SYS_waitid, "the end of a child process (waitid)", Subject::Child},
    {SYS_readv, "input (readv)", Subject::Descriptor},
    {SYS_writev, "a reader of its output (writev)", Subject::Descriptor},
    {SYS_fdatasync, "a disk (fdatasync)", Subject::Descriptor},
    {SYS_openat, "a file, or the other end of a FIFO (openat)", Subject::Nothing},
    {SYS_epoll_pwait, "input (epoll_pwait)", Subject::Nothing},
    {SYS_rt_sigsuspend, "a signal (sigsuspend)", Subject::Nothing},
    {SYS_rt_sigtimedwait, "a signal (sigtimedwait)", Subject::Nothing},
    {SYS_mq_timedreceive, "a message queue (mq_timedreceive)", Subject::Nothing},
#ifdef SYS_fcntl
    {SYS_fcntl, "a file lock (fcntl)", Subject::Descriptor},
#endif
#ifdef SYS_fcntl64
    {SYS_fcntl64, "a file lock (fcntl)", Subject::Descriptor},
#endif
#ifdef SYS_open
    {SYS_open, "a file, or the other end of a FIFO (open)", Subject::Nothing},
#endif
#ifdef SYS_pause
    {SYS_pause, "a signal (pause)", Subject::Nothing},
#endif
#ifdef SYS_accept
    {SYS_accept, "somebody who connects (accept)", Subject::Descriptor},
#endif
#ifdef SYS_accept4
    {SYS_accept4, "somebody who connects (accept4)", Subject::Descriptor},
#endif
#ifdef SYS_sendto
    {SYS_sendto, "a socket's reader (send)", Subject::Descriptor},
#endif
#ifdef SYS_sendmsg
    {SYS_sendmsg, "a socket's reader (sendmsg)", Subject::Descriptor},
#endif
#ifdef SYS_semop
    {SYS_semop, "a semaphore (semop)", Subject::Nothing},
#endif
#ifdef SYS_semtimedop
    {SYS_semtimedop, "a semaphore (semtimedop)", Subject::Nothing},
#endif
#ifdef SYS_msgrcv
    {SYS_msgrcv, "a message queue (msgrcv)", Subject::Nothing},
#endif
#ifdef SYS_msgsnd
    {SYS_msgsnd, "room in a message queue (msgsnd)", Subject::Nothing},
#endif
#ifdef SYS_futex_time64
    {SYS_futex_time64, "a lock or another thread (futex)", Subject::Nothing},
#endif
#ifdef SYS_clock_nanosleep_time64
    {SYS_clock_nanosleep_time64, "a fixed time (clock_nanosleep)", Subject::Nothing},
#endif
#ifdef SYS_ppoll_time64
    {SYS_ppoll_time64, "input (ppoll)", Subject::Nothing},
#endif
#ifdef SYS_recvfrom
    {SYS_recvfrom, "a socket (recvfrom)", Subject::Descriptor},
#endif
#ifdef SYS_recvmsg
    {SYS_recvmsg, "a socket (recvmsg)", Subject::Descriptor},
#endif
#ifdef SYS_poll
    {SYS_poll, "input (poll)", Subject::Nothing},
#endif
#ifdef SYS_select
    {SYS_select, "input (select)", Subject::Nothing},
#endif
#ifdef SYS_epoll_wait
    {SYS_epoll_wait, "input (epoll)", Subject::Nothing},
#endif
};

QString subjectOf(qint64 pid, const CallRow& call, const QByteArray& firstArgument) {
    if (call.subject == Subject::Descriptor) {
        const int descriptor = firstArgument.toInt(nullptr, 16);
        char target[4096];
        const QByteArray link =
            QByteArray("/proc/") + QByteArray::number(pid) + "/fd/" + QByteArray::number(descriptor);
        const ssize_t length = readlink(link.constData(), target, sizeof target);
        return length > 0 ? " from or to " + QString::fromLocal8Bit(target, int(length))
                          : QString(" from or to descriptor %1").arg(descriptor);
    }
    QStringList children;
    if (call.subject == Subject::Child) {
        for (const ChildInfo& child : childrenOf(pid))
            children += QString("%1 (process %2)").arg(child.name).arg(child.pid);
    }
    return children.isEmpty() ? QString() : ": " + children.join(", ");
}

QString kernelFunction(qint64 pid) {
    const QByteArray function = procFile(pid, "wchan").trimmed();
    return function.isEmpty() || function == "0" ? QString() : ", in the kernel's " + QString::fromLatin1(function);
}

} // namespace

QString waitingFor(qint64 pid) {
    const char state = processInfo(pid).state;
    if (state == 'R')
        return "is computing";
    const QList<QByteArray> call = procFile(pid, "syscall").trimmed().split(' ');
    bool isNumber = false;
    const long number = call.value(0).toLong(&isNumber);
    for (const CallRow& row : calls) {
        if (isNumber && row.number == number)
            return "waits for " + QString(row.text) + subjectOf(pid, row, call.value(1)) + kernelFunction(pid);
    }
    if (state == 'D')
        return "waits for a device" + kernelFunction(pid);
    if (isNumber)
        return QString("waits in system call %1").arg(number) + kernelFunction(pid);
    return "sleeps" + kernelFunction(pid);
}

QString whySilent(qint64 pid) {
    const ProcessInfo process = processInfo(pid);
    if (process.isSaved)
        return QString("it is saved: it has stopped its process %1 itself").arg(pid);
    if (process.isStopped())
        return QString("its process %1 was stopped from outside").arg(pid);
    if (process.isTraced())
        return QString("a debugger holds its process %1").arg(pid);
    if (process.hasEnded())
        return QString("its process %1 has ended").arg(pid);
    return QString("it does not answer: its process %1 %2").arg(pid).arg(waitingFor(pid));
}
