// Somebody on the demo's stage.
#include "demo/Actor.h"

#include <VelExitCodes>

#include <QFile>

QString Role::textOf(int status) const {
    return isModule ? getExitCodeInString(status) : QString::number(status);
}

void Actor::say(const QString& line) {
    m_lines += line;
    m_untaken += line;
    Q_EMIT said(line);
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

bool Actor::isFrozen() const {
    QFile file(QString("/proc/%1/stat").arg(processId()));
    if (processId() <= 0 || !file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray text = file.readAll();
    return text.mid(text.lastIndexOf(')') + 2, 1) == "T"; // the program's name before may hold anything
}

int Actor::indexOfLine(const QString& text) const {
    for (int index = 0; index < m_lines.size(); ++index) {
        if (m_lines.at(index).contains(text))
            return index;
    }
    return -1;
}

QMap<QString, QString> actorEnvironment() {
    return {
        {"QT_MESSAGE_PATTERN",
         "%{if-critical}error: %{endif}%{if-warning}warning: %{endif}%{if-debug}debug: %{endif}%{message}"},
        {"QT_FORCE_STDERR_LOGGING", "1"}, // also where Qt would talk to the journal
        {"VEL_LOG_LEVEL", "6"},
    };
}

ProcessActor::ProcessActor(const Role& role, const QMap<QString, QString>& environment) : Actor(role) {
    for (const auto& variables : {actorEnvironment(), environment}) {
        for (auto variable = variables.cbegin(); variable != variables.cend(); ++variable)
            m_process.setVariable(variable.key(), variable.value());
    }
    connect(&m_process, &ChildProcess::lineRead, this, &Actor::say);
    connect(&m_process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this, &Actor::ended);
}

bool ProcessActor::enter(const QString& program, const QStringList& options) {
    return m_process.run(program, options);
}

bool ProcessActor::endedAsExpected() const {
    return hasEnded() && m_process.exitStatus() == QProcess::NormalExit &&
           m_process.exitCode() == role().expectedStatus;
}

QString ProcessActor::statusText() const {
    if (!hasEnded())
        return "still running";
    if (m_process.exitStatus() == QProcess::CrashExit)
        return QString("signal %1").arg(m_process.exitCode());
    return role().textOf(m_process.exitCode());
}
