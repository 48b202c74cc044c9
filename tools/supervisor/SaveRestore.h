// A save or a restore: freezes modules, runs the command on their data, and resumes them whatever happens.
#pragma once

#include "Configuration.h"
#include "FreezeWatch.h"
#include "LateAnswer.h"
#include "SupervisedProcess.h"

#include <QDBusServiceWatcher>

#include <memory>
#include <vector>

class Fleet;
class Guardian;

class SaveRestore : public QObject {
    Q_OBJECT
public:
    enum Operation { Save, Restore };

    SaveRestore(const Configuration& configuration, Fleet& fleet, Guardian& guardian);
    ~SaveRestore() override;

    /// Begins, for the modules of these names; none means every module that has a data folder. One at a time.
    ///
    /// Answers with the names of the modules whose data was saved, when that is all of them; else with an error that
    /// says what is missing.
    void begin(Operation operation, const QStringList& names, const LateAnswer& answer);

    /// Whether an operation goes on, or what it has started has not ended yet.
    bool isBusy() const { return m_step != Step::Idle || m_command.isRunning(); }

    /// Whether a process is frozen, or may freeze yet, that nobody but this object would resume.
    bool isNeeded() const;

    /// Ends the operation as failed. Every module is resumed.
    void abandon(const QString& reason);

    /// The answer of a module that is about to freeze; `sender` is its unique name on the bus.
    void takeAnswer(const QString& sender);

Q_SIGNALS:
    /// The operation is over, every module is resumed, and another one may begin.
    void finished();

    /// isNeeded() may have changed.
    void released();

private:
    enum class Step { Idle, Freezing, Copying };

    QStringList everyoneWithData() const;
    QString refusal(Operation operation, const QStringList& names) const;
    const CommandConfiguration& command(Operation operation) const;
    void takeIn(const QString& name);
    void takeInQuiet(const QString& name);
    void freeze(const QString& name);
    void freezeThoseThatCameThrough();
    void noteAppeared(const QString& service);
    FreezeWatch* earlierWatch(const QString& name) const;
    void goOnWhenSettled();
    void copy();
    void takeCommandEnd();
    void finish(const QString& failure = QString());
    QStringList inOrder(const QStringList& names) const;
    void exclude(const QString& module, const QString& reason);
    QString consequence(bool commandFailed, const QStringList& done) const;

    const Configuration& m_configuration;
    Fleet& m_fleet;
    Operation m_operation = Save;
    Step m_step = Step::Idle;
    LateAnswer m_answer;
    QStringList m_names;                 // who was to take part
    QStringList m_quiet;                 // of them, those without a process: nobody changes their data
    int m_questions = 0;                 // whether that is so, asked of the bus and not answered yet
    QDBusServiceWatcher m_newcomers;     // tells when somebody starts one of the quiet ones all the same
    QStringList m_late;                  // of them, those that have not yet come through an earlier operation
    QStringList m_troubles;              // why others of them do not take part, a text each
    std::vector<FreezeWatch*> m_watches; // of them, those that were asked, then those that are frozen
    std::vector<std::unique_ptr<FreezeWatch>> m_alive; // all of this and of earlier operations, until they are over
    int m_number = 0;                                  // of this operation
    bool m_commandRan = false;
    QTimer m_limit;
    SupervisedProcess m_command;
};
