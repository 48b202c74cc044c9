// A child process that dies with this one.
#include "testing/ChildProcess.h"

#include "testing/TimeLimit.h"

#include <QFile>
#include <QFileInfo>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vel::testing {

ChildProcess::ChildProcess(QObject* parent) : QProcess(parent), m_parent(getpid()) {
    setProcessChannelMode(QProcess::MergedChannels);
    setProcessEnvironment(QProcessEnvironment::systemEnvironment());
    connect(this, &QProcess::readyReadStandardOutput, this, &ChildProcess::readLines);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    setChildProcessModifier([this] { dieWithParent(); });
#endif
}

ChildProcess::~ChildProcess() {
    if (state() == QProcess::NotRunning)
        return;
    kill();
    waitForFinished(-1); // nobody survives SIGKILL
}

void ChildProcess::setVariable(const QString& name, const QString& value) {
    QProcessEnvironment environment = processEnvironment();
    if (value.isEmpty())
        environment.remove(name);
    else
        environment.insert(name, value);
    setProcessEnvironment(environment);
}

Result ChildProcess::run(const QString& program, const QStringList& arguments) {
    m_lines.clear();
    m_unfinished.clear();
    start(program, arguments);
    if (waitForStarted(TimeLimit().leftMs()))
        return Result::success();
    return Result::failure(QStringLiteral("cannot start '%1': %2").arg(program, errorString()));
}

Result ChildProcess::waitForLine(const QString& text, int after) {
    const TimeLimit limit;
    for (;;) {
        for (; after < m_lines.size(); ++after) {
            if (m_lines.at(after).contains(text))
                return Result::success();
        }
        const int left = limit.leftMs();
        const bool hasEnded = state() == QProcess::NotRunning;
        if (left == 0 || hasEnded)
            return Result::failure(QStringLiteral("'%1' wrote no line with '%2' %3")
                                       .arg(QFileInfo(program()).fileName(), text,
                                            hasEnded ? QStringLiteral("before it ended") : limit.text()) +
                                   lastLines());
        waitForReadyRead(left);
    }
}

int ChildProcess::waitForStatus() {
    const TimeLimit limit;
    while (state() != QProcess::NotRunning) {
        const int left = limit.leftMs();
        if (left == 0)
            return -2;
        waitForFinished(left);
    }
    return exitStatus() == QProcess::NormalExit ? exitCode() : -1;
}

Result ChildProcess::waitForEnd(int status) {
    const TimeLimit limit;
    const QString name = QFileInfo(program()).fileName();
    if (!waitUntil([this] { return state() == QProcess::NotRunning; }, limit))
        return Result::failure(QStringLiteral("'%1' did not end %2").arg(name, limit.text()) + lastLines());
    if (exitStatus() == QProcess::NormalExit && exitCode() == status)
        return Result::success();
    const QString how = exitStatus() == QProcess::NormalExit ? QStringLiteral("with status %1").arg(exitCode())
                                                             : QStringLiteral("by a signal");
    return Result::failure(QStringLiteral("'%1' ended %2, not with status %3").arg(name, how).arg(status) +
                           lastLines());
}

Result ChildProcess::freeze() {
    const pid_t process = static_cast<pid_t>(processId());
    siginfo_t info = {};
    // waitid() tells it when the last thread has stopped, and leaves the child to QProcess.
    if (process > 0 && ::kill(process, SIGSTOP) == 0 &&
        waitid(P_PID, static_cast<id_t>(process), &info, WSTOPPED | WEXITED | WNOWAIT) == 0 &&
        info.si_code == CLD_STOPPED)
        return Result::success();
    return Result::failure(QStringLiteral("cannot freeze '%1': it does not run").arg(program()));
}

void ChildProcess::resume() {
    if (processId() > 0)
        ::kill(static_cast<pid_t>(processId()), SIGCONT);
}

char ChildProcess::processState() const {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(processId()));
    if (processId() <= 0 || !stat.open(QIODevice::ReadOnly))
        return 0;
    // "PID (NAME) STATE ...": the name may hold anything, so the last parenthesis counts.
    const QByteArray text = stat.readAll();
    return text.mid(text.lastIndexOf(')') + 2, 1).at(0);
}

void ChildProcess::dieWithParent() const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != m_parent) // it died before the line above
        _exit(127);
}

void ChildProcess::readLines() {
    m_unfinished += readAllStandardOutput();
    for (int end = m_unfinished.indexOf('\n'); end >= 0; end = m_unfinished.indexOf('\n')) {
        m_lines.append(QString::fromUtf8(m_unfinished.left(end)));
        m_unfinished.remove(0, end + 1);
        Q_EMIT lineRead(m_lines.last());
    }
}

QString ChildProcess::lastLines() const {
    constexpr int most = 10;
    return m_lines.isEmpty() ? QString()
                             : QStringLiteral("; its last lines:\n    ") +
                                   m_lines.mid(m_lines.size() - most).join(QStringLiteral("\n    "));
}

} // namespace vel::testing
