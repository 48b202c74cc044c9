// A child process that dies with this one, and whose output is read line by line.
#pragma once

#include "testing/Result.h"

#include <QProcess>
#include <QStringList>

#include <sys/types.h>

namespace vel::testing {

/// A process that a test starts. It gets this process's environment; what it writes to standard error is read as its
/// output, too.
///
/// It is killed by the destructor, and by the kernel when the thread that started it ends, however that comes about: a
/// crash or a SIGKILL of the test included. Processes that it started in its turn are not.
///
/// Thread:   the one that made it, which should live as long as the process.
class ChildProcess : public QProcess {
    Q_OBJECT
public:
    explicit ChildProcess(QObject* parent = nullptr);

    /// Kills the process if it still runs (a stopped one too) and waits for its end.
    ~ChildProcess() override;

    /// Sets a variable of the child's environment; an empty value removes it. Before the start.
    void setVariable(const QString& name, const QString& value);

    /// Starts the program. It runs when the Result is true; how far it is, nobody knows.
    Result run(const QString& program, const QStringList& arguments = QStringList());

    /// All lines so far.
    const QStringList& lines() const { return m_lines; }

    /// Waits until the child has written a line that contains `text` (not counting the first `after` lines). The event
    /// loop does not run meanwhile.
    ///
    /// Errors:   it ended, or the time limit passed, without such a line.
    Result waitForLine(const QString& text, int after = 0);

    /// Waits for the end: the exit status; -1 when it was ended by a signal, -2 when it did not end. The event loop
    /// does not run meanwhile.
    [[nodiscard]] int waitForStatus();

    /// Waits for the end, which must be with that exit status. The event loop runs meanwhile.
    Result waitForEnd(int status);

    /// Stops it as SIGSTOP does, and returns when the kernel has stopped every thread of it: it answers nobody and keeps
    /// its name on the bus.
    Result freeze();

    /// Lets a frozen process go on.
    void resume();

    /// The state letter of /proc/PID/stat: 'T' is stopped; 0 when there is no such process.
    char processState() const;

Q_SIGNALS:
    void lineRead(const QString& line);

protected:
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    void setupChildProcess() override {
        dieWithParent();
    }
#endif

    /// "its last lines:" and these, for a message; empty when there are none.
    QString lastLines() const;

private:
    void dieWithParent() const;
    void readLines();

    const pid_t m_parent;
    QStringList m_lines;
    QByteArray m_unfinished;
};

} // namespace vel::testing
