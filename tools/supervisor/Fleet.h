// All modules of a configuration: which may start, and which may end, by what waits for what.
#pragma once

#include "SupervisedModule.h"

#include <QHash>

#include <memory>
#include <vector>

class Fleet : public QObject {
    Q_OBJECT
public:
    Fleet(const Configuration& configuration, Guardian& guardian, Launcher* launcher);

    const std::vector<std::unique_ptr<SupervisedModule>>& modules() const { return m_modules; }

    /// The first of those that a module waits for which is down; empty when there is none.
    QString downAmongNeeded(const SupervisedModule& module) const;

    /// The module of that name, or null.
    SupervisedModule* find(const QString& name) const;

    /// Starts all: each as soon as everything that it waits for is up.
    void start();

    /// While held, no process is started: what would start waits.
    void hold(bool isHeld);

    /// Stops all: each as soon as everything that waits for it is down. Nothing is started from then on.
    void stop();

    /// Kills all at once. Nothing is started from then on.
    void kill();

    /// Whether there is no process left.
    bool isDown() const;

Q_SIGNALS:
    /// A module is in another state.
    void changed();

private:
    void goOn();
    void startWhatMay();
    bool mayStart(const SupervisedModule& module);
    void stopWhatMay();

    std::vector<std::unique_ptr<SupervisedModule>> m_modules;
    QHash<QString, SupervisedModule*> m_byName;
    QSet<QString> m_stuck; // those that wait for one that is down, as far as that was logged
    bool m_isHeld = false;
    bool m_isStopping = false;
    bool m_isGoingOn = false;
    bool m_hasChanged = false; // since goOn() looked last
};
