// A module process on the demo's stage, and what it has said so far.
#pragma once

#include "support/ChildProcess.h"

#include <QMap>
#include <QStringList>

/// What to start, and how it is expected to end.
struct Role {
    QString label;       ///< its name in the timeline
    QString program;     ///< the file name of the module's program
    QStringList options; ///< for its command line
    int expectedStatus;  ///< an exit status, see VelExitCode
    QMap<QString, QString> environment = {};
};

class Actor : public QObject {
    Q_OBJECT
public:
    explicit Actor(const Role& role);

    /// Starts the program from the folder; false when that is impossible.
    [[nodiscard]] bool enter(const QString& folder);

    const Role& role() const { return m_role; }
    ChildProcess& process() { return m_process; }
    bool hasEnded() const { return m_process.state() == QProcess::NotRunning; }

    /// Whether the process has ended with the status of its role.
    bool endedAsExpected() const;

    /// The status in words: "NORMAL_EXIT [1]", "still running", "signal 11".
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
