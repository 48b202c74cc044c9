// A module that the supervisor has started. Its lines are in the supervisor's output, with its name and process in front;
// how it ended is known from what the supervisor says.
#pragma once

#include "demo/Actor.h"

class SupervisedActor : public Actor {
    Q_OBJECT
public:
    using Actor::Actor;

    /// For the module's environment: like actorEnvironment(), but the lines say whose they are.
    static QMap<QString, QString> environment(const QString& name);

    /// Looks at a line of the supervisor's output, and takes from it what is its own. True when it is this module's own line,
    /// and not one of the supervisor's.
    bool hear(const QString& line);

    qint64 processId() const override { return m_processId; }
    bool hasEnded() const override { return !m_end.isEmpty(); }
    bool endedAsExpected() const override { return m_end == role().textOf(role().expectedStatus); }
    bool hasFailed() const override { return m_staysDown && !endedAsExpected(); }
    QString statusText() const override { return hasEnded() ? m_end : QStringLiteral("still running"); }

private:
    qint64 m_processId = 0;
    QString m_end; // in the supervisor's words; empty when the module runs
    bool m_staysDown = false;
};
