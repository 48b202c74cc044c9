// A save or a restore: freezes modules, runs the command on their data, and resumes them whatever happens.
#pragma once

#include "Configuration.h"
#include "FreezeWatch.h"
#include "LateAnswer.h"
#include "SupervisedProcess.h"

#include <memory>
#include <vector>

class Fleet;
class Guardian;
class VelModule;

class SaveRestore : public QObject {
    Q_OBJECT
public:
    enum Operation { Save, Restore };

    SaveRestore(const Configuration& configuration, Fleet& fleet, Guardian& guardian, const VelModule& supervisor);
    ~SaveRestore() override;

    /// Begins, for the modules of these names; none means every module that has a data folder. One at a time.
    ///
    /// Answers with the names of the modules whose data was saved, when that is all of them; else with an error that
    /// says what is missing.
    void begin(Operation operation, const QStringList& names, const LateAnswer& answer);

    bool isBusy() const { return m_step != Step::Idle; }

    /// Ends the operation as failed. Every module is resumed.
    void abandon(const QString& reason);

    /// The answer of a module that is about to freeze; `sender` is its unique name on the bus.
    void takeAnswer(const QString& sender);

Q_SIGNALS:
    /// The operation is over, and every module resumed.
    void finished();

private:
    enum class Step { Idle, Freezing, Copying };

    QStringList everyoneWithData() const;
    QString refusal(Operation operation, const QStringList& names) const;
    const CommandConfiguration& command(Operation operation) const;
    void freeze(const QString& name);
    void goOnWhenSettled();
    void copy();
    void takeCommandEnd();
    void finish(const QString& failure = QString());
    void exclude(const QString& module, const QString& reason);
    QString consequence(bool commandFailed, const QStringList& done) const;

    const Configuration& m_configuration;
    Fleet& m_fleet;
    const VelModule& m_supervisor;
    Operation m_operation = Save;
    Step m_step = Step::Idle;
    LateAnswer m_answer;
    QStringList m_names;                               // who was to take part
    QStringList m_quiet;                               // of them, those without a process: nobody changes their data
    QStringList m_troubles;                            // why others of them do not take part, a text each
    std::vector<FreezeWatch*> m_watches;               // of them, those that were asked, then those that are frozen
    std::vector<std::unique_ptr<FreezeWatch>> m_alive; // all of this and of earlier operations, until they are over
    bool m_commandRan = false;
    QTimer m_limit;
    SupervisedProcess m_command;
};
