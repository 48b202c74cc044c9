// One module's life under the supervisor: started, watched, ended, started again.
#pragma once

#include "AliveWatch.h"
#include "Configuration.h"
#include "LastError.h"
#include "SupervisedProcess.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QVariant>

class SupervisedModule : public QObject {
    Q_OBJECT
public:
    enum class State {
        Down,     ///< no process, and none is going to be started
        Waiting,  ///< to be started as soon as that is allowed
        Starting, ///< the process runs and has not told the end of its init() yet
        Up,
        Stopping,
        Pausing ///< no process; it waits for its next attempt
    };

    SupervisedModule(const ModuleConfiguration& configuration, const QString& folder, Guardian& guardian,
                     Launcher* launcher, int slot);

    const QString& name() const { return m_configuration.name; }
    const QStringList& waitsFor() const { return m_configuration.waitsFor; }
    const QString& dataFolder() const { return m_configuration.dataFolder; }
    State state() const { return m_state; }
    bool hasProcess() const { return m_process.isRunning(); }
    pid_t processId() const { return m_process.processId(); }
    qint64 millisecondsInState() const { return m_inState.elapsed(); }

    /// How it last went down, in words; empty before that.
    const QString& lastEnd() const { return m_lastEnd; }

    /// How often it has ended or was not started, since the supervisor runs.
    int ends() const { return m_ends; }

    /// One line for people: name, state and what belongs to it.
    QString description() const;

    /// The same for programs, and its last end; the keys are those of the method "modules".
    QVariantMap details() const;

    AliveWatch& alive() { return m_alive; }

    /// To be started from Down or Pausing, with its attempts counted from new; from Stopping, when it has ended.
    void want();

    /// From Waiting: starts the process.
    void launch();

    /// The module has told the end of its init().
    void noteUp();

    /// Asks the module to end, kills it when it has not after its limit, and does not start it again.
    void stop();

    /// The same at once, without asking.
    void kill();

Q_SIGNALS:
    void changed();

private:
    void enter(State state);
    void takeEnd();
    void takeLimit();
    void takeSilence(const QString& reason);
    void takeDumpEnd();
    void killUnlessItAnswers();
    void wentDown(const QString& cause, const QString& text);
    void tryAgainOrGiveUp();
    void askToStop() const;
    void noteEnd(const QString& text, bool isNormal);

    const ModuleConfiguration m_configuration;
    const QString m_folder;
    SupervisedProcess m_process;
    State m_state = State::Down;
    QElapsedTimer m_inState;
    QString m_lastEnd;
    QVariantMap m_endDetails; // the same for programs
    int m_ends = 0;
    int m_restarts = 0; // by itself, since somebody asked for a start
    LastError m_lastError;
    AliveWatch m_alive;
    QString m_silence; // why it does not answer; empty while it does
    SupervisedProcess m_dump;
    QTimer m_dumpLimit;
    QTimer m_limit;     // of starting and of stopping
    QTimer m_stopAgain; // a module that is not in RUN yet takes no notice of its stop event
    QTimer m_pause;
    QTimer m_steady;
    int m_attempt = 0; // in a row
    bool m_isTooSlow = false;
    bool m_isKilledByLimit = false;
    bool m_isKilledInSilence = false;
    bool m_startAfterStop = false;
};
