// How a module is: on the bus, in the kernel's eyes, and whether its event loop answers.
//
// The question whether it answers is an introspection: that is answered by the thread of the event loop. A
// ping would not do, for Qt's own D-Bus thread answers it, also while the event loop is busy.
#include "ModuleReport.h"

#include "ModuleNames.h"
#include "Suggestion.h"
#include "process/WaitingFor.h"

#include <QDBusPendingCall>

namespace velctl {

namespace {

ModuleState stateOf(const ProcessInfo& process, bool answers) {
    if (process.isStopped())
        return process.isSaved ? ModuleState::Saved : ModuleState::Stopped;
    if (process.isTraced())
        return ModuleState::Traced;
    return answers ? ModuleState::Running : ModuleState::Unresponsive;
}

} // namespace

QString ModuleReport::stateText() const {
    switch (state) {
    case ModuleState::Running:
        return "running";
    case ModuleState::Saved:
        return "saved";
    case ModuleState::Stopped:
        return "stopped";
    case ModuleState::Traced:
        return "traced";
    case ModuleState::Unresponsive:
        return "unresponsive";
    }
    return QString();
}

Colour ModuleReport::stateColour() const {
    switch (state) {
    case ModuleState::Running:
        return Colour::Green;
    case ModuleState::Saved:
        return Colour::Cyan;
    case ModuleState::Stopped:
    case ModuleState::Traced:
        return Colour::Yellow;
    case ModuleState::Unresponsive:
        return Colour::Red;
    }
    return Colour::None;
}

QJsonObject ModuleReport::toJson() const {
    return {{"module", module},
            {"pid", process.pid},
            {"program", process.program},
            {"state", stateText()},
            {"memory", process.memory},
            {"uptime", process.uptime},
            {"service", serviceOf(module)},
            {"uniqueName", uniqueName}};
}

QList<ModuleReport> lookAt(Bus& bus, const QStringList& modules, int patienceMs) {
    QList<ModuleReport> reports;
    QList<QDBusPendingCall> calls;
    for (const QString& module : modules) {
        ModuleReport report{module, bus.ownerOf(module), {}, ModuleState::Running, QString()};
        if (report.uniqueName.isEmpty())
            continue; // it has left since its name was read
        report.process = processInfo(bus.processOf(report.uniqueName));
        report.state = stateOf(report.process, true);
        reports += report;
    }
    for (const ModuleReport& report : qAsConst(reports)) {
        const QDBusMessage question = Bus::callTo(report.module, "org.freedesktop.DBus.Introspectable", "Introspect");
        calls += report.state == ModuleState::Running ? bus.connection().asyncCall(question, patienceMs)
                                                      : QDBusPendingCall::fromError(QDBusError());
    }
    for (int index = 0; index < reports.size(); ++index) {
        ModuleReport& report = reports[index];
        if (report.state != ModuleState::Running)
            continue;
        QDBusPendingCall& call = calls[index];
        call.waitForFinished();
        const QDBusMessage answer = call.reply();
        // An error of its own is an answer, too: the object is hidden, but somebody is at home. The bus daemon's
        // says that nobody is.
        const bool answers = answer.type() == QDBusMessage::ReplyMessage ||
                             (!answer.service().isEmpty() && !Bus::isFromBusDaemon(answer));
        if (!answers)
            report.process = processInfo(report.process.pid); // it may have been stopped meanwhile
        report.state = stateOf(report.process, answers);
        report.introspection = answer.arguments().value(0).toString();
    }
    return reports;
}

QString whySilent(const ModuleReport& report) {
    if (report.process.pid == 0)
        return "it does not answer";
    const ProcessInfo process = processInfo(report.process.pid);
    const QString id = QString::number(process.pid);
    switch (stateOf(process, false)) {
    case ModuleState::Saved:
        return QString("it is saved: it has stopped its process %1 itself").arg(id);
    case ModuleState::Stopped:
        return QString("its process %1 was stopped from outside").arg(id);
    case ModuleState::Traced:
        return QString("a debugger holds its process %1").arg(id);
    default:
        break;
    }
    if (process.hasEnded())
        return QString("its process %1 has ended").arg(id);
    return QString("it does not answer: its process %1 %2").arg(id, waitingFor(process.pid));
}

Status statusFor(ModuleState state) {
    switch (state) {
    case ModuleState::Running:
        return Ok;
    case ModuleState::Unresponsive:
        return TimeLimitReached;
    default:
        return NotRunning;
    }
}

ModuleReport requireModule(Bus& bus, const QString& verb, const QString& object, const QString& module,
                           int patienceMs) {
    requireValidName(verb, "a module", module);
    const QList<ModuleReport> reports = lookAt(bus, {module}, patienceMs);
    if (reports.isEmpty())
        throw Failure{NotRunning, QString("cannot %1 '%2': there is no module '%3' on the bus; %4")
                                      .arg(verb, object, module, suggestion(module, bus.modules()))};
    const ModuleReport& report = reports.first();
    if (report.state == ModuleState::Traced)
        throw Failure{NotRunning, QString("cannot %1 '%2': %3; nothing was sent").arg(verb, object, whySilent(report))};
    if (statusFor(report.state) == NotRunning)
        throw Failure{NotRunning, QString("cannot %1 '%2': %3; nothing was sent, 'kill -CONT %4' lets it go on")
                                      .arg(verb, object, whySilent(report))
                                      .arg(report.process.pid)};
    return report;
}

} // namespace velctl
