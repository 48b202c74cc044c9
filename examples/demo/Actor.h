// Somebody on the demo's stage, and what it has said so far: a process of the demo's own, or a module of the supervisor's.
#pragma once

#include "testing/ChildProcess.h"

#include <QMap>
#include <QObject>
#include <QStringList>

/// How somebody is called, and how it is expected to end.
struct Role {
    QString name;       ///< in the timeline
    int expectedStatus; ///< an exit status; a module's, see VelExitCode

    bool isModule = true; ///< other programs give their statuses meanings of their own

    /// A status in words: "NORMAL_EXIT [1]"; the number alone when it is no module's.
    QString textOf(int status) const;
};

class Actor : public QObject {
    Q_OBJECT
public:
    explicit Actor(const Role& role) : m_role(role) {}

    const Role& role() const { return m_role; }
    virtual qint64 processId() const = 0;
    virtual bool hasEnded() const = 0;

    /// Whether its process is stopped, as /proc has it.
    bool isFrozen() const;

    /// Whether it has ended as its role says.
    virtual bool endedAsExpected() const = 0;

    /// Whether it has ended otherwise, for good.
    virtual bool hasFailed() const { return hasEnded() && !endedAsExpected(); }

    /// How it ended, in words: the text of its status, "still running", "signal 11".
    virtual QString statusText() const = 0;

    /// Takes the first line with that text that was not taken before; false when there is none. Lines of different
    /// threads and processes come in any order, so the order in which they are asked for does not matter.
    [[nodiscard]] bool takeLine(const QString& text);

    /// Where the first line with that text stands among all lines; -1 when there is none.
    int indexOfLine(const QString& text) const;

    const QStringList& lines() const { return m_lines; }

    void say(const QString& line);

Q_SIGNALS:
    void said(const QString& line);
    void ended();

private:
    const Role m_role;
    QStringList m_lines;
    QStringList m_untaken;
};

/// What modules get in their environment: their lines begin with the tone alone, for the timeline adds time and name, and
/// all but debug lines are shown.
QMap<QString, QString> actorEnvironment();

/// A process that the demo starts itself.
class ProcessActor : public Actor {
    Q_OBJECT
public:
    ProcessActor(const Role& role, const QMap<QString, QString>& environment = {});

    /// Starts the program; false when that is impossible.
    [[nodiscard]] bool enter(const QString& program, const QStringList& options);

    qint64 processId() const override { return m_process.processId(); }
    bool hasEnded() const override { return m_process.state() == QProcess::NotRunning; }
    bool endedAsExpected() const override;
    QString statusText() const override;

    /// Why it could not be started.
    QString errorText() const { return m_process.errorString(); }

    /// Asks it to end, by SIGTERM.
    void terminate() { m_process.terminate(); }

    void kill() { m_process.kill(); }

private:
    ChildProcess m_process;
};
