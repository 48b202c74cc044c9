// Starts modules by fork: the supervisor's side of vel-launcher.
#pragma once

#include "process/LauncherProcess.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class Guardian;
class QSocketNotifier;

/// Runs a launcher, replaces it when it ends, and gives up on it when that does not help: modules are executed then.
///
/// Also collects the processes that this process adopts from then on: the children of its children.
class Launcher : public QObject {
    Q_OBJECT
public:
    /// Starts one that loads these libraries.
    Launcher(Guardian& guardian, const QStringList& libraries);
    ~Launcher() override;

    /// Lets a forked process become what the request says; its group is enrolled under `slot`.
    ///
    /// Result:   its process id; 0 when there is none, and `reason` says why. It may still fail to become that: see
    ///           failureOf().
    /// Waits:    for the launcher, which is ready as a rule; a second at most (ten until it has loaded), then it is replaced.
    [[nodiscard]] pid_t launch(launch::Request& request, int slot, QString& reason);

    /// Why a process that launch() returned, and that has ended, did not become the module; empty when it did.
    QString failureOf(pid_t process);

private:
    void start();
    void read();
    void note(const launch::Reply& reply);
    void takeEnd(const QString& how);
    void collectEnded();

    Guardian& m_guardian;
    launch::LauncherProcess m_process;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QHash<std::uint32_t, pid_t> m_taken; // not yet returned by launch()
    QHash<pid_t, QString> m_failures;    // not yet asked for
    QString m_refusal;                   // why there will be no launcher any more
    QElapsedTimer m_sinceStart;
    bool m_hasLoaded = false;
    int m_launchers = 0;  // that have ended
    int m_shortLives = 0; // of them, the last ones in a row
    std::uint32_t m_lastId = 0;
};
