// What the supervisor offers on the bus. Every method but listModules() and modules() answers when its work is done, which may take longer
// than a caller's usual limit; every refusal is an error with a text that says why.
#pragma once

#include <QDBusAbstractAdaptor>
#include <QList>
#include <QStringList>
#include <QVariantMap>

class ApplicationManager;

Q_DECLARE_METATYPE(QList<QVariantMap>)

class SupervisorAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", VEL_BUS_PREFIX ".VelInterface")
public:
    explicit SupervisorAdaptor(ApplicationManager* manager);

public Q_SLOTS:
    /// Answers when the module is up, or with an error when it is not coming up.
    QString startModule(const QString& module);

    /// Answers when the process has ended, with its end in words. A module that is not in the configuration is asked to stop
    /// and not waited for; "ApplicationManager" means the supervisor and with it everything.
    QString stopModule(const QString& module);

    QString restartModule(const QString& module);

    /// One line for each module: its name, its state, and its process or its last end.
    QStringList listModules();

    /// A dictionary for each module: "ModuleName" s, "State" s (down, waiting, starting, up, unresponsive, stopping,
    /// pausing), "InState" d (seconds), "Restarts" i (by the supervisor itself, since somebody asked for a start), "Ends" i
    /// and "WaitsFor" as. While it has a process: "Process" i. While it does not answer: "Silence" s, why. Before its next
    /// attempt: "NextStart" d (seconds from now). Once it has ended: "Reason" s, "EndedAt" x (milliseconds since 1970), and
    /// "Status" i with "StatusName" s, or "Signal" i, or neither when its program could not be started.
    QList<QVariantMap> modules();

    /// Names with blanks between them; none means every module with a data folder. Answers with the names of those whose
    /// data was saved or restored, when that is all of them.
    QStringList save();
    QStringList save(const QString& modules);
    QStringList restore();
    QStringList restore(const QString& modules);

private:
    ApplicationManager& m_manager;
};
