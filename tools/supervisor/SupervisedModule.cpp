// One module's life. Everything that happens to the process ends in one of two places: enter(), which is told to whoever
// follows, and wentDown(), which decides what comes next.
#include "SupervisedModule.h"

#include "Bus.h"
#include "Log.h"

#include <VelExitCodes>

#include <QDateTime>
#include <QRegularExpression>

namespace {

constexpr int stopAgainMs = 500;

QString seconds(qint64 milliseconds) {
    return QString::number(static_cast<double>(milliseconds) / 1000) + " s";
}

const QMap<SupervisedModule::State, QString> stateNames{
    {SupervisedModule::State::Down, "down"},         {SupervisedModule::State::Waiting, "waiting"},
    {SupervisedModule::State::Starting, "starting"}, {SupervisedModule::State::Up, "up"},
    {SupervisedModule::State::Stopping, "stopping"}, {SupervisedModule::State::Pausing, "pausing"},
};

// A step's failure, which the library logs as "cannot finish init() of module 'A': it threw 'no such device'; the module ends
// with INIT_ERROR [3]".
QString inPlainWords(QString error) {
    static const QRegularExpression step("^cannot finish (\\w+\\(\\)) of module '\\w+': it (.*); the module [^;]*$");
    static const QRegularExpression text("\\(\\) threw '(.*)'$");
    return error.replace(step, "\\1 \\2").replace(text, "() threw: \\1");
}

} // namespace

SupervisedModule::SupervisedModule(const ModuleConfiguration& configuration, const QString& folder, Guardian& guardian,
                                   Launcher* launcher, int slot)
    : m_configuration(configuration), m_folder(folder), m_process(guardian, slot),
      m_alive(configuration.name, configuration.alive), m_dump(guardian, highestModuleCount + slot) {
    if (configuration.isForked)
        m_process.setLauncher(launcher);
    m_inState.start();
    for (QTimer* timer : {&m_limit, &m_pause, &m_steady, &m_dumpLimit})
        timer->setSingleShot(true);
    m_stopAgain.setInterval(stopAgainMs);
    connect(&m_process, &SupervisedProcess::ended, this, &SupervisedModule::takeEnd);
    connect(&m_limit, &QTimer::timeout, this, &SupervisedModule::takeLimit);
    connect(&m_stopAgain, &QTimer::timeout, this, &SupervisedModule::askToStop);
    connect(&m_pause, &QTimer::timeout, this, [this] { enter(State::Waiting); });
    connect(&m_steady, &QTimer::timeout, this, [this] { m_attempt = 0; });
    connect(&m_alive, &AliveWatch::wentSilent, this, &SupervisedModule::takeSilence);
    connect(&m_alive, &AliveWatch::answeredAgain, this, [this] {
        m_silence.clear();
        logWarning(QString("'%1' answers again").arg(name()));
        Q_EMIT changed();
    });
    connect(&m_dumpLimit, &QTimer::timeout, &m_dump, &SupervisedProcess::killGroup);
    connect(&m_dump, &SupervisedProcess::ended, this, &SupervisedModule::takeDumpEnd);
}

QString SupervisedModule::description() const {
    QString detail;
    if (hasProcess())
        detail = QString("process %1").arg(processId()) + (m_silence.isEmpty() ? QString() : ", " + m_silence);
    else if (m_state == State::Waiting && !waitsFor().isEmpty())
        detail = "needs " + waitsFor().join(", ");
    else if (m_state == State::Pausing)
        detail = QString("attempt %1 of %2 follows; ").arg(m_attempt).arg(m_configuration.restart.attempts) + m_lastEnd;
    else
        detail = m_lastEnd;
    return name() + ": " + stateNames[m_state] + (detail.isEmpty() ? QString() : ", " + detail);
}

QVariantMap SupervisedModule::details() const {
    QVariantMap details = m_endDetails;
    details["ModuleName"] = name();
    details["State"] = m_silence.isEmpty() ? stateNames[m_state] : QString("unresponsive");
    details["InState"] = static_cast<double>(millisecondsInState()) / 1000;
    details["Restarts"] = m_restarts;
    details["Ends"] = m_ends;
    details["WaitsFor"] = waitsFor();
    if (hasProcess())
        details["Process"] = static_cast<int>(processId());
    if (!m_silence.isEmpty())
        details["Silence"] = m_silence;
    if (m_state == State::Pausing)
        details["NextStart"] = static_cast<double>(m_pause.remainingTime()) / 1000;
    return details;
}

void SupervisedModule::want() {
    switch (m_state) {
    case State::Down:
    case State::Pausing:
        m_attempt = m_restarts = 0;
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
    m_isTooSlow = m_isKilledByLimit = m_isKilledInSilence = m_startAfterStop = false;
    enter(State::Starting);
    m_limit.start(m_configuration.startLimitMs);
    logInfo(QString("starts '%1'").arg(name()));
    m_lastError.clear();
    QMap<QString, QString> environment = m_configuration.environment;
    environment.insert("VEL_LAST_ERROR", m_lastError.path());
    m_process.run(m_configuration.program, m_configuration.arguments + QStringList{"--moduleName=" + name()},
                  environment, m_folder);
}

void SupervisedModule::noteUp() {
    if (m_state != State::Starting || m_isTooSlow)
        return;
    m_limit.stop();
    m_steady.start(m_configuration.restart.steadyMs);
    m_alive.start();
    logInfo(QString("'%1' is up").arg(name()));
    enter(State::Up);
}

void SupervisedModule::stop() {
    m_startAfterStop = false;
    m_steady.stop();
    m_alive.stop();
    m_silence.clear();
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
    askToStop();
}

void SupervisedModule::askToStop() const {
    publish("stop_module_" + name());
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

void SupervisedModule::takeSilence(const QString& reason) {
    const CommandConfiguration& dump = m_configuration.alive.dump;
    const bool isKilled = m_configuration.restart.causes.contains("unresponsive");
    m_silence = reason;
    logError(QString("cannot get an answer from '%1' in %2: %3; %4")
                 .arg(name(), seconds(m_configuration.alive.limitMs), reason,
                      isKilled ? "it is killed" : "it is left as it is"));
    Q_EMIT changed();
    if (dump.program.isEmpty() || m_dump.isRunning())
        return killUnlessItAnswers();
    m_dumpLimit.start(dump.limitMs);
    const pid_t process = m_alive.process() > 0 ? m_alive.process() : processId();
    m_dump.run(dump.program, dump.arguments + QStringList{QString::number(process)}, {{"VEL_MODULES", name()}},
               m_folder);
}

void SupervisedModule::takeDumpEnd() {
    if (!m_dumpLimit.isActive())
        logWarning(QString("the dump of '%1' was killed: it did not end in time").arg(name()));
    else if (m_dump.end().kind != SupervisedProcess::End::Exited || m_dump.end().number != 0)
        logWarning(QString("the dump of '%1' %2").arg(name(), m_dump.endText()));
    m_dumpLimit.stop();
    killUnlessItAnswers();
}

void SupervisedModule::killUnlessItAnswers() {
    if (m_silence.isEmpty() || m_state != State::Up || !m_configuration.restart.causes.contains("unresponsive"))
        return;
    m_isKilledInSilence = true;
    m_process.killGroup();
}

void SupervisedModule::takeEnd() {
    const SupervisedProcess::End& end = m_process.end();
    if (m_isTooSlow)
        return wentDown("slowStart", "was killed: it did not come up in " + seconds(m_configuration.startLimitMs));
    if (m_isKilledByLimit)
        return wentDown("signal", "was killed: it did not end in " + seconds(m_configuration.stopLimitMs));
    if (m_isKilledInSilence)
        return wentDown(
            "unresponsive",
            QString("was killed: it did not answer in %1: %2").arg(seconds(m_configuration.alive.limitMs), m_silence));
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
    m_alive.stop();
    if (cause.isEmpty())
        m_lastEnd = text;
    else
        noteEnd(text, isNormal);
    m_silence.clear();
    QVariantMap event = m_endDetails;
    const QString line = QString("'%1' %2").arg(name(), m_lastEnd);
    if (isNormal)
        logInfo(line);
    else if (wasAsked || isTriedAgain)
        logWarning(line);
    else
        logError(line + "; it stays down");
    if (isTriedAgain)
        tryAgainOrGiveUp();
    else
        enter(wasAsked && m_startAfterStop ? State::Waiting : State::Down);
    if (cause.isEmpty())
        return; // there was no process
    event.remove("EndedAt");
    event["ModuleName"] = name();
    event["Restarts"] = m_restarts;
    if (m_state == State::Pausing)
        event["NextStart"] = static_cast<double>(m_pause.interval()) / 1000;
    publish("module_ended", event);
}

// Before another process writes where this one has left its last error.
void SupervisedModule::noteEnd(const QString& text, bool isNormal) {
    const SupervisedProcess::End& end = m_process.end();
    const QString error = isNormal ? QString() : m_lastError.text();
    const QString plain = inPlainWords(error);
    ++m_ends;
    m_lastEnd = text;
    if (!error.isEmpty())
        m_lastEnd += (plain == error ? "; its last error: " : ": ") + plain;
    m_endDetails = {{"Reason", error.isEmpty() || plain == error ? m_lastEnd : plain},
                    {"EndedAt", QDateTime::currentMSecsSinceEpoch()}};
    if (end.kind == SupervisedProcess::End::Exited) {
        m_endDetails["Status"] = end.number;
        m_endDetails["StatusName"] = getExitCodeInString(end.number).section('[', 0, 0).trimmed();
    } else if (end.kind == SupervisedProcess::End::Killed) {
        m_endDetails["Signal"] = end.number;
    }
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
    ++m_restarts;
    logWarning(QString("starts '%1' again in %2, attempt %3 of %4")
                   .arg(name(), seconds(delay))
                   .arg(m_attempt)
                   .arg(policy.attempts));
    m_pause.start(delay);
    enter(State::Pausing);
}
