// A child process that dies with this one, and whose output is read line by line.
#pragma once

#include <QProcess>
#include <QStringList>

#include <sys/types.h>

class ChildProcess : public QProcess {
    Q_OBJECT
public:
    explicit ChildProcess(QObject* parent = nullptr);

    /// Kills the process if it still runs (a stopped one too) and waits for its end.
    ~ChildProcess() override;

    /// Sets a variable of the child's environment; an empty value removes it. Before the start.
    void setVariable(const QString& name, const QString& value);

    /// Starts the program and returns whether it runs. What it writes to standard error is read as its output too.
    [[nodiscard]] bool run(const QString& program, const QStringList& arguments = QStringList());

    /// All lines so far.
    const QStringList& lines() const { return m_lines; }

    /// Waits until the child has written a line that contains `text` (not counting the first `after` lines). False
    /// when it ended, or the time limit of one wait passed, without such a line.
    [[nodiscard]] bool waitForLine(const QString& text, int after = 0);

    /// Waits for the end: the exit status; -1 when it was ended by a signal, -2 when it did not end.
    [[nodiscard]] int waitForStatus();

    /// The state letter of /proc/PID/stat: 'T' is stopped; 0 when there is no such process.
    char processState() const;

Q_SIGNALS:
    void lineRead(const QString& line);

protected:
    void setupChildProcess() override;

private:
    void readLines();

    const pid_t m_parent;
    QStringList m_lines;
    QByteArray m_unfinished;
};
