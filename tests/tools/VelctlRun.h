// Runs velctl as an operator would, and the modules that it works on.
#pragma once

#include "testing/ChildProcess.h"

#include <QJsonObject>
#include <QProcess>
#include <QStringList>

#include <memory>

/// What a run of velctl left behind.
struct Outcome {
    int status;
    QStringList out; ///< lines of standard output
    QString err;

    /// The objects of the lines.
    QList<QJsonObject> objects() const;
};

/// Runs velctl to its end.
Outcome velctl(const QStringList& arguments, const QByteArray& input = QByteArray());

/// A velctl that goes on while the test does something.
class Background {
public:
    /// Starts it, and returns when it has written to standard error: that it watches, or waits.
    explicit Background(const QStringList& arguments);

    /// Waits for its end.
    Outcome outcome();

    /// As Ctrl-C does.
    void interrupt();

private:
    QProcess m_process;
    QString m_err;
};

/// Starts a peer under that name, and returns when it answers; null when it does not.
std::unique_ptr<ChildProcess> startPeer(const QString& name, const QStringList& options = QStringList(),
                                        const QString& variable = QString(), const QString& value = QString());

/// Brings a peer into a state, and returns when it is in it.
[[nodiscard]] bool save(const ChildProcess& peer, const QString& name);
[[nodiscard]] bool stopFromOutside(const ChildProcess& peer);
[[nodiscard]] bool makeBusy(ChildProcess& peer, const QString& name);

/// Whether this user may read in which system call that process is, which is a matter of the kernel's settings, in the
/// numbers of this program's architecture, which an emulator's process has not.
bool tellsSystemCalls(const ChildProcess& peer);

/// Lets a stopped or a busy one go on.
void resume(const ChildProcess& peer);
void release(ChildProcess& peer);
