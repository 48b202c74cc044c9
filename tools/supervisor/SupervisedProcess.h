// A process that this program starts: it leads a group of its own, and nothing of that group outlives it or the supervisor.
#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include <sys/types.h>

class Guardian;
class Launcher;

class SupervisedProcess : public QObject {
    Q_OBJECT
public:
    struct End {
        enum Kind { Exited, Killed, NotStarted };
        Kind kind = Exited;
        int number = 0; ///< the exit status, the signal or the reason's errno
    };

    /// `slot` is the process's place with the guardian; no two that run at the same time share one.
    SupervisedProcess(Guardian& guardian, int slot);

    /// Kills the group.
    ~SupervisedProcess() override;

    /// From now on processes are forked by this one, when it can do that, and executed otherwise.
    void setLauncher(Launcher* launcher) { m_launcher = launcher; }

    /// Starts a program, with the supervisor's environment and the variables given; its output goes where the supervisor's
    /// goes, and it has no input.
    void run(const QString& program, const QStringList& arguments, const QMap<QString, QString>& variables,
             const QString& folder);

    bool isRunning() const { return m_process > 0; }
    pid_t processId() const { return m_process; }

    /// Kills the process and everything in its group, stopped or not.
    void killGroup();

    /// How it ended.
    const End& end() const { return m_end; }

    /// The same in words: "ended with NORMAL_EXIT [1]", "ended with Crashed [1], by signal 11" or "did not start:
    /// FailedToStart [0], " with the reason.
    QString endText() const;

Q_SIGNALS:
    /// It has ended, or could not be started. Comes from the event loop, never from run().
    void ended();

private:
    /// What to start.
    struct Start {
        QString program;
        QStringList arguments;
        QStringList environment;
        QString folder;
    };

    bool fork(QString& reason);
    void execute();
    void takeEnd();
    void finish(const End& end);

    Guardian& m_guardian;
    const int m_slot;
    Launcher* m_launcher = nullptr;
    bool m_isForked = false;
    Start m_start;
    pid_t m_process = 0;
    int m_failure = -1; // the pipe through which a process tells that it could not become its program
    End m_end;
};
