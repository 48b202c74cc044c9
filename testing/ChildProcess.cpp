// A child process that dies with this one.
#include "testing/ChildProcess.h"

#include <QElapsedTimer>
#include <QFile>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

// How long one wait may take before the child counts as hung: far above what a loaded machine needs.
constexpr int longestWaitMs = 60000;

} // namespace

ChildProcess::ChildProcess(QObject* parent) : QProcess(parent), m_parent(getpid()) {
    setProcessChannelMode(QProcess::MergedChannels);
    setProcessEnvironment(QProcessEnvironment::systemEnvironment());
    connect(this, &QProcess::readyReadStandardOutput, this, &ChildProcess::readLines);
}

ChildProcess::~ChildProcess() {
    if (state() == QProcess::NotRunning)
        return;
    kill();
    waitForFinished(longestWaitMs);
}

void ChildProcess::setVariable(const QString& name, const QString& value) {
    QProcessEnvironment environment = processEnvironment();
    if (value.isEmpty())
        environment.remove(name);
    else
        environment.insert(name, value);
    setProcessEnvironment(environment);
}

bool ChildProcess::run(const QString& program, const QStringList& arguments) {
    m_lines.clear();
    m_unfinished.clear();
    start(program, arguments);
    return waitForStarted(longestWaitMs);
}

bool ChildProcess::waitForLine(const QString& text, int after) {
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        for (; after < m_lines.size(); ++after) {
            if (m_lines.at(after).contains(text))
                return true;
        }
        const int left = longestWaitMs - static_cast<int>(timer.elapsed());
        if (left <= 0 || !waitForReadyRead(left))
            return false;
    }
}

int ChildProcess::waitForStatus() {
    if (state() != QProcess::NotRunning && !waitForFinished(longestWaitMs))
        return -2;
    return exitStatus() == QProcess::NormalExit ? exitCode() : -1;
}

char ChildProcess::processState() const {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(processId()));
    if (processId() <= 0 || !stat.open(QIODevice::ReadOnly))
        return 0;
    // "PID (NAME) STATE ...": the name may hold anything, so the last parenthesis counts.
    const QByteArray text = stat.readAll();
    return text.mid(text.lastIndexOf(')') + 2, 1).at(0);
}

void ChildProcess::setupChildProcess() {
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
