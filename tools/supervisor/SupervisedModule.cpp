// One module's life. Everything that happens to the process ends in one of two places: enter(), which is told to whoever
// follows, and wentDown(), which decides what comes next.
#include "SupervisedModule.h"

#include "Log.h"

#include <VelExitCodes>

namespace {

constexpr int stopAgainMs = 500;

QString seconds(qint64 milliseconds) {
    return QString::number(static_cast<double>(milliseconds) / 1000) + " s";
}

} // namespace

SupervisedModule::SupervisedModule(const ModuleConfiguration& configuration, const QString& folder, Guardian& guardian,
                                   int slot)
    : m_configuration(configuration), m_folder(folder), m_process(guardian, slot) {
    m_inState.start();
    for (QTimer* timer : {&m_limit, &m_pause, &m_steady})
        timer->setSingleShot(true);
    m_stopAgain.setInterval(stopAgainMs);
    connect(&m_process, &SupervisedProcess::ended, this, &SupervisedModule::takeEnd);
    connect(&m_limit, &QTimer::timeout, this, &SupervisedModule::takeLimit);
    connect(&m_stopAgain, &QTimer::timeout, this, [this] { Q_EMIT stopEventWanted(name()); });
    connect(&m_pause, &QTimer::timeout, this, [this] { enter(State::Waiting); });
    connect(&m_steady, &QTimer::timeout, this, [this] { m_attempt = 0; });
}

QString SupervisedModule::description() const {
    static const QMap<State, QString> words{
        {State::Down, "down"}, {State::Waiting, "waiting"},   {State::Starting, "starting"},
        {State::Up, "up"},     {State::Stopping, "stopping"}, {State::Pausing, "pausing"},
    };
    QString detail;
    if (hasProcess())
        detail = QString("process %1").arg(processId());
    else if (m_state == State::Waiting && !waitsFor().isEmpty())
        detail = "needs " + waitsFor().join(", ");
    else if (m_state == State::Pausing)
        detail = QString("attempt %1 of %2 follows; ").arg(m_attempt).arg(m_configuration.restart.attempts) + m_lastEnd;
    else
        detail = m_lastEnd;
    return name() + ": " + words[m_state] + (detail.isEmpty() ? QString() : ", " + detail);
}

void SupervisedModule::want() {
    switch (m_state) {
    case State::Down:
    case State::Pausing:
        m_attempt = 0;
        m_pause.stop();
        return enter(State::Waiting);
    case State::Stopping:
        m_startAfterStop = true;
        return;
    case State::Waiting:
    case State::Starting:
    case State::Up:
        return;
    }
}

void SupervisedModule::launch() {
    m_isTooSlow = m_isKilledByLimit = m_startAfterStop = false;
    enter(State::Starting);
    m_limit.start(m_configuration.startLimitMs);
    logInfo(QString("starts '%1'").arg(name()));
    m_process.run(m_configuration.program, m_configuration.arguments + QStringList{"--moduleName=" + name()},
                  m_configuration.environment, m_folder);
}

void SupervisedModule::noteUp() {
    if (m_state != State::Starting || m_isTooSlow)
        return;
    m_limit.stop();
    m_steady.start(m_configuration.restart.steadyMs);
    logInfo(QString("'%1' is up").arg(name()));
    enter(State::Up);
}

void SupervisedModule::stop() {
    m_startAfterStop = false;
    m_steady.stop();
    if (!hasProcess()) {
        m_pause.stop();
        if (m_state != State::Down)
            wentDown(QString(), "was stopped before it started");
        return;
    }
    if (m_state == State::Stopping)
        return;
    logInfo(QString("stops '%1'").arg(name()));
    enter(State::Stopping);
    m_limit.start(m_configuration.stopLimitMs);
    m_stopAgain.start();
    Q_EMIT stopEventWanted(name());
}

void SupervisedModule::kill() {
    stop();
    m_process.killGroup();
}

void SupervisedModule::enter(State state) {
    m_state = state;
    m_inState.restart();
    Q_EMIT changed();
}

void SupervisedModule::takeLimit() {
    if (m_state == State::Stopping) {
        m_isKilledByLimit = true;
        logError(QString("cannot stop '%1': it did not end in %2; it is killed")
                     .arg(name(), seconds(m_configuration.stopLimitMs)));
    } else {
        m_isTooSlow = true;
        logError(QString("cannot start '%1': it did not come up in %2; it is killed")
                     .arg(name(), seconds(m_configuration.startLimitMs)));
    }
    m_process.killGroup();
}

void SupervisedModule::takeEnd() {
    const SupervisedProcess::End& end = m_process.end();
    if (m_isTooSlow)
        return wentDown("slowStart", "was killed: it did not come up in " + seconds(m_configuration.startLimitMs));
    if (m_isKilledByLimit)
        return wentDown("signal", "was killed: it did not end in " + seconds(m_configuration.stopLimitMs));
    switch (end.kind) {
    case SupervisedProcess::End::Exited:
        return wentDown(QString::number(end.number), m_process.endText());
    case SupervisedProcess::End::Killed:
        return wentDown("signal", m_process.endText());
    case SupervisedProcess::End::NotStarted:
        return wentDown("failedStart", m_process.endText());
    }
}

void SupervisedModule::wentDown(const QString& cause, const QString& text) {
    const bool wasAsked = m_state == State::Stopping || cause.isEmpty();
    const bool isNormal = cause.isEmpty() || cause == QString::number(VelNormalExit);
    const bool isTriedAgain = !wasAsked && m_configuration.restart.causes.contains(cause);
    m_limit.stop();
    m_stopAgain.stop();
    m_steady.stop();
    m_lastEnd = text;
    const QString line = QString("'%1' %2").arg(name(), text);
    if (isNormal)
        logInfo(line);
    else if (wasAsked || isTriedAgain)
        logWarning(line);
    else
        logError(line + "; it stays down");
    if (isTriedAgain)
        return tryAgainOrGiveUp();
    enter(wasAsked && m_startAfterStop ? State::Waiting : State::Down);
}

void SupervisedModule::tryAgainOrGiveUp() {
    const RestartPolicy& policy = m_configuration.restart;
    if (m_attempt == policy.attempts) {
        logError(
            QString("cannot keep '%1' up: it went down %2 times in a row, last: it %3; it stays down until somebody "
                    "starts it")
                .arg(name())
                .arg(m_attempt + 1)
                .arg(m_lastEnd));
        return enter(State::Down);
    }
    int delay = policy.firstDelayMs;
    for (int doubled = 0; doubled < m_attempt && delay < policy.longestDelayMs; ++doubled)
        delay = delay > policy.longestDelayMs / 2 ? policy.longestDelayMs : delay * 2;
    ++m_attempt;
    logWarning(QString("starts '%1' again in %2, attempt %3 of %4")
                   .arg(name(), seconds(delay))
                   .arg(m_attempt)
                   .arg(policy.attempts));
    m_pause.start(delay);
    enter(State::Pausing);
}
