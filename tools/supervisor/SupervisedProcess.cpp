// A process in a group of its own. The group matters three times: a terminal's Ctrl-C reaches the supervisor alone, which
// then ends the modules in their order; a module's helper processes end with the module; and the guardian can end both.
//
// What must always hold: the forked process enrols with the guardian before it does anything that could take long. QProcess
// was rejected for that reason: its child first waits for a word of its parent, and when the parent is killed at that
// moment, it waits for ever, unknown to everybody.
#include "SupervisedProcess.h"

#include "Guardian.h"
#include "Launcher.h"
#include "Log.h"

#include <VelExitCodes>
#include <VelUnixSignals>

#include <QFile>
#include <QProcess>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

/// Texts in the form in which execve() takes them.
class TextArray {
public:
    explicit TextArray(const QStringList& texts) {
        for (const QString& text : texts)
            m_texts.push_back(QFile::encodeName(text));
        for (QByteArray& text : m_texts)
            m_pointers.push_back(text.data());
        m_pointers.push_back(nullptr);
    }
    char* const* data() { return m_pointers.data(); }

private:
    std::vector<QByteArray> m_texts;
    std::vector<char*> m_pointers;
};

/// Why a forked process would not find what the variables promise; empty when it would. The dynamic linker and the C
/// library read theirs before main() alone.
QString whyOnlyExecuted(const QMap<QString, QString>& variables) {
    for (auto variable = variables.cbegin(); variable != variables.cend(); ++variable) {
        for (const char* prefix : {"LD_", "GLIBC_", "MALLOC_"}) {
            if (variable.key().startsWith(prefix))
                return QString("its variable '%1' is read before a process has forked").arg(variable.key());
        }
    }
    return QString();
}

} // namespace

SupervisedProcess::SupervisedProcess(Guardian& guardian, int slot) : m_guardian(guardian), m_slot(slot) {
    velOnSignals({SIGCHLD}, this, [this](int) { takeEnd(); });
}

SupervisedProcess::~SupervisedProcess() {
    if (!isRunning())
        return;
    killGroup(); // and not waited for: it may be in the hands of a device
    close(m_failure);
}

void SupervisedProcess::run(const QString& program, const QStringList& arguments,
                            const QMap<QString, QString>& variables, const QString& folder) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto variable = variables.cbegin(); variable != variables.cend(); ++variable)
        environment.insert(variable.key(), variable.value());
    m_start = {program, QStringList{program} + arguments, environment.toStringList(), folder};
    QString reason = whyOnlyExecuted(variables);
    m_isForked = m_launcher && reason.isEmpty() && fork(reason);
    if (m_isForked)
        return;
    if (m_launcher)
        logWarning(QString("cannot fork '%1': %2; it is executed instead").arg(program, reason));
    execute();
}

bool SupervisedProcess::fork(QString& reason) {
    launch::Request request;
    const QString object = m_start.program + ".so";
    if (!QFile::exists(object)) {
        reason = QString("there is no '%1'").arg(object);
        return false;
    }
    request.object = QFile::encodeName(object).toStdString();
    for (const QString& argument : qAsConst(m_start.arguments))
        request.arguments.push_back(QFile::encodeName(argument).toStdString());
    for (const QString& variable : qAsConst(m_start.environment))
        request.environment.push_back(QFile::encodeName(variable).toStdString());
    request.folder = QFile::encodeName(m_start.folder).toStdString();
    request.input = launch::Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    request.output = launch::Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    request.error = launch::Descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
    m_process = m_launcher->launch(request, m_slot, reason);
    if (m_process > 0)
        m_guardian.note(m_slot, m_process);
    return m_process > 0;
}

void SupervisedProcess::execute() {
    // All that needs memory is made before the fork.
    TextArray argumentArray(m_start.arguments);
    TextArray environmentArray(m_start.environment);
    const QByteArray path = QFile::encodeName(m_start.program);
    const QByteArray folderPath = QFile::encodeName(m_start.folder);
    const pid_t supervisor = getpid();
    int failure[2];
    if (pipe2(failure, O_CLOEXEC | O_NONBLOCK) != 0)
        failure[0] = failure[1] = -1;

    m_process = ::fork();
    if (m_process == 0) {
        m_guardian.enrol(m_slot);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != supervisor) // it died before the line above
            _exit(VelLibsError);
        signal(SIGPIPE, SIG_DFL); // the bus library ignores it
        signal(SIGTTOU,
               SIG_IGN); // in its own group it is in the background, and may write to the terminal all the same
        const int nothing = open("/dev/null", O_RDONLY);
        if (nothing >= 0 && dup2(nothing, STDIN_FILENO) >= 0 && chdir(folderPath.constData()) == 0)
            execve(path.constData(), argumentArray.data(), environmentArray.data());
        const int reason = errno;
        [[maybe_unused]] const ssize_t written = write(failure[1], &reason, sizeof reason);
        _exit(VelLibsError);
    }
    const int reason = errno;
    close(failure[1]);
    m_failure = failure[0];
    if (m_process > 0)
        m_guardian.note(m_slot, m_process);
    else
        QMetaObject::invokeMethod(
            this,
            [this, reason] {
                finish({End::NotStarted, reason});
            },
            Qt::QueuedConnection);
}

void SupervisedProcess::killGroup() {
    if (isRunning()) {
        ::kill(-m_process, SIGKILL);
        ::kill(m_process, SIGKILL); // should it have left its group, or not have it yet
    }
}

QString SupervisedProcess::endText() const {
    switch (m_end.kind) {
    case End::Exited:
        return "ended with " + getExitCodeInString(m_end.number);
    case End::Killed:
        return QString("ended with %1, by signal %2").arg(getProcessErrorInString(QProcess::Crashed)).arg(m_end.number);
    case End::NotStarted:
        return QString("did not start: %1, '%2': %3")
            .arg(getProcessErrorInString(QProcess::FailedToStart), m_start.program, qt_error_string(m_end.number));
    }
    return QString();
}

void SupervisedProcess::takeEnd() {
    siginfo_t info{};
    // The end stays to be collected while the group is killed: its number cannot be another's until then.
    if (!isRunning() || waitid(P_PID, static_cast<id_t>(m_process), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid == 0)
        return;
    ::kill(-m_process, SIGKILL);
    m_guardian.note(m_slot, 0);
    waitid(P_PID, static_cast<id_t>(m_process), &info, WEXITED);
    if (const QString failure = m_isForked ? m_launcher->failureOf(m_process) : QString(); !failure.isEmpty()) {
        logWarning(QString("cannot fork '%1': %2; it is executed instead").arg(m_start.program, failure));
        m_isForked = false;
        return execute();
    }
    int reason = 0;
    if (read(m_failure, &reason, sizeof reason) == sizeof reason)
        finish({End::NotStarted, reason});
    else
        finish({info.si_code == CLD_EXITED ? End::Exited : End::Killed, info.si_status});
}

void SupervisedProcess::finish(const End& end) {
    close(m_failure);
    m_failure = -1;
    m_guardian.note(m_slot, 0);
    m_process = 0;
    m_end = end;
    Q_EMIT ended();
}
