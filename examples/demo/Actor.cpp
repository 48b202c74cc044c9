// A process on the demo's stage.
#include "demo/Actor.h"

#include <VelExitCodes>

QString Role::textOf(int status) const {
    return isModule ? getExitCodeInString(status) : QString::number(status);
}

Actor::Actor(const Role& role) : m_role(role) {
    m_process.setVariable("QT_MESSAGE_PATTERN", linePattern());
    m_process.setVariable("QT_FORCE_STDERR_LOGGING", "1"); // also where Qt would talk to the journal
    m_process.setVariable("VEL_LOG_LEVEL", "6");           // info lines and everything more urgent
    for (auto variable = role.environment.cbegin(); variable != role.environment.cend(); ++variable)
        m_process.setVariable(variable.key(), variable.value());

    connect(&m_process, &ChildProcess::lineRead, this, [this](const QString& line) {
        m_untaken += line;
        Q_EMIT said(line);
    });
    connect(&m_process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this, &Actor::ended);
}

QString Actor::linePattern() {
    return "%{if-critical}error: %{endif}%{if-warning}warning: %{endif}%{if-debug}debug: %{endif}%{message}";
}

bool Actor::enter(const QString& folder) {
    return m_process.run(folder + QLatin1Char('/') + m_role.program, m_role.options);
}

bool Actor::endedAsExpected() const {
    return hasEnded() && m_process.exitStatus() == QProcess::NormalExit &&
           m_process.exitCode() == m_role.expectedStatus;
}

QString Actor::statusText() const {
    if (!hasEnded())
        return "still running";
    if (m_process.exitStatus() == QProcess::CrashExit)
        return QString("signal %1").arg(m_process.exitCode());
    return m_role.textOf(m_process.exitCode());
}

bool Actor::takeLine(const QString& text) {
    for (int index = 0; index < m_untaken.size(); ++index) {
        if (m_untaken.at(index).contains(text)) {
            m_untaken.removeAt(index);
            return true;
        }
    }
    return false;
}

int Actor::indexOfLine(const QString& text) const {
    const QStringList& lines = m_process.lines();
    for (int index = 0; index < lines.size(); ++index) {
        if (lines.at(index).contains(text))
            return index;
    }
    return -1;
}
