// Whether a module's event loop still turns.
#pragma once

#include "Configuration.h"

#include <QObject>
#include <QTimer>

#include <sys/types.h>

/// Asks a module again and again, while it is watched, and tells when it does not answer in time.
///
/// A module that is frozen for a save or held by a debugger has its full time again when it goes on. Time in which the
/// supervisor itself was stopped is nobody's.
class AliveWatch : public QObject {
    Q_OBJECT
public:
    AliveWatch(const QString& module, const AliveConfiguration& configuration);

    /// From now on the module is asked; until stop().
    void start();
    void stop();

    /// The process that has the module's name, once it was asked; 0 before.
    pid_t process() const { return m_process; }

    /// While excused, a module may be silent for as long as it likes.
    void excuse(bool isExcused);

Q_SIGNALS:
    /// The module did not answer in time; `reason` says what its process does instead, as a clause. Once for each silence.
    void wentSilent(const QString& reason);

    /// It has answered after all.
    void answeredAgain();

private:
    void ask();
    void sendQuestion();
    void takeAnswer(bool isAnswer);
    void tick();
    void fail();

    const QString m_module;
    const AliveConfiguration m_configuration;
    QTimer m_every;
    QTimer m_tick;
    int m_ticks = 0;
    int m_question = 0; // the number of the one that is open, or was last
    pid_t m_process = 0;
    bool m_isExcused = false;
    bool m_isRefused = false; // by the bus, not by the module
    bool m_isSilent = false;
};
