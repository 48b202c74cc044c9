// One module during a save or a restore, from the announcement until it is certain not to be frozen any more.
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariant>

#include <sys/types.h>

/// Freezes the process of one module, says how far that has come, and resumes it.
///
/// Once released it takes care of itself: it stays, and resumes the process whenever it is found frozen, until the module
/// has proved that it is past its freeze or the process is gone; then it says that it is over.
class FreezeWatch : public QObject {
    Q_OBJECT
public:
    enum class State {
        Asking,   ///< no word from the module yet
        Answered, ///< it has said that it is about to freeze
        Frozen,   ///< it has said so, and every thread of it is stopped
        Passed,   ///< it goes on without having been frozen
        Gone      ///< it is not on the bus, or no more
    };

    explicit FreezeWatch(const QString& module);

    /// Announces a save or, when not, a restore to the module.
    void ask(bool save);

    /// A module said that it is about to freeze; `sender` is its unique name on the bus.
    void takeAnswer(const QString& sender);

    const QString& module() const { return m_module; }
    State state() const { return m_state; }

    /// Whether the module is frozen now, as it was when state() became that.
    bool isStillFrozen() const;

    /// Why the module is not frozen, in words of which it is the subject; empty when it is.
    QString reason() const;

    /// Resumes the process, now and whenever it is found frozen from now on.
    void release();

    /// Whether it was released, and nothing is expected of the module any more.
    bool isDormant() const { return m_isReleased && m_isProven; }

    /// Tells the module that its data has been restored.
    void announceRestored() const;

Q_SIGNALS:
    void changed();

    /// Nothing can freeze the process any more.
    void over(FreezeWatch* self);

    /// It was released, and nothing is expected of the module; it might still freeze, if it answers after all.
    void fellAsleep();

private:
    void takeOwner(const QVariant& owner);
    void takeProcess(const QVariant& process);
    void announce();
    void probe();
    void takeProbe(bool isAnswered);
    void look();
    void enter(State state);
    void resume();
    void finishUnlessDormant();

    const QString m_module;
    State m_state = State::Asking;
    bool m_save = false;
    bool m_hasAnswered = false;
    bool m_isReleased = false;
    bool m_isOver = false;
    bool m_isProven = false; // that the module is past its freeze
    int m_probe = 0;         // the number of the last one
    int m_openProbes = 0;
    bool m_needsProbe = false; // as soon as one of the open ones is answered
    QString m_owner;           // the module's unique name on the bus
    pid_t m_process = 0;
    QTimer m_look;
};
