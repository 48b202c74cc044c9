// A process on the demo's stage, as a rule a module, and what it has said so far.
#pragma once

#include "support/ChildProcess.h"

#include <QMap>
#include <QStringList>

/// What to start, and how it is expected to end.
struct Role {
    QString label;       ///< its name in the timeline
    QString program;     ///< the file name of its program
    QStringList options; ///< for its command line
    int expectedStatus;  ///< an exit status; a module's, see VelExitCode
    QMap<QString, QString> environment = {};
    bool isModule = true; ///< other programs give their statuses meanings of their own

    /// A status in words: "NORMAL_EXIT [1]"; the number alone when it is no module's.
    QString textOf(int status) const;
};

class Actor : public QObject {
    Q_OBJECT
public:
    explicit Actor(const Role& role);

    /// What an actor's lines look like, in the form in which Qt takes it from the environment. Bare: the timeline adds
    /// time and name. A module's own format would be right on a console.
    static QString linePattern();

    /// Starts the program from the folder; false when that is impossible.
    [[nodiscard]] bool enter(const QString& folder);

    const Role& role() const { return m_role; }
    ChildProcess& process() { return m_process; }
    bool hasEnded() const { return m_process.state() == QProcess::NotRunning; }

    /// Whether the process has ended with the status of its role.
    bool endedAsExpected() const;

    /// How it ended, in words: the text of its status, "still running", "signal 11".
    QString statusText() const;

    /// Takes the first line with that text that was not taken before; false when there is none. Lines of different
    /// threads and processes come in any order, so the order in which they are asked for does not matter.
    [[nodiscard]] bool takeLine(const QString& text);

    /// Where the first line with that text stands among all lines; -1 when there is none.
    int indexOfLine(const QString& text) const;

Q_SIGNALS:
    void said(const QString& line);
    void ended();

private:
    const Role m_role;
    QStringList m_untaken;
    ChildProcess m_process;
};
