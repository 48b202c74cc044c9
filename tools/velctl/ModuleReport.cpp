// How a module is: on the bus, in the kernel's eyes, and whether its event loop answers.
//
// The question whether it answers is an introspection: that is answered by the thread of the event loop. A
// ping would not do, for Qt's own D-Bus thread answers it, also while the event loop is busy.
#include "ModuleReport.h"

#include "ModuleNames.h"

#include "process/WaitingFor.h"
#include "wire/Json.h"

#include <QJsonArray>

#include <algorithm>

namespace velctl {

namespace {

ModuleState stateOf(const ProcessInfo& process, bool answers) {
    if (process.isStopped())
        return process.isSaved ? ModuleState::Saved : ModuleState::Stopped;
    if (process.isTraced())
        return ModuleState::Traced;
    return answers ? ModuleState::Running : ModuleState::Unresponsive;
}

wire::Message questionFor(const ModuleReport& report, Question question) {
    if (question == Question::Methods)
        return signOfLifeFrom(report);
    wire::Message call = callTo(report.uniqueName, "/vel/info", DBUS_INTERFACE_PROPERTIES, "GetAll");
    wire::Appender(call.get()).text('s', vel::bus::infoInterface());
    return call;
}

QJsonObject infoIn(DBusMessage* answer) {
    DBusMessageIter value;
    if (!answer || isError(answer) || !dbus_message_has_signature(answer, "a{sv}") ||
        !dbus_message_iter_init(answer, &value))
        return {};
    return propertiesIn(wire::jsonOf(value).toArray());
}

} // namespace

QJsonObject propertiesIn(const QJsonArray& dictionary) {
    QJsonObject properties;
    for (const QJsonValue& entry : dictionary)
        properties.insert(entry.toArray().at(0).toString(), entry.toArray().at(1).toObject().value("value"));
    return properties;
}

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
    QJsonObject json{{"module", module},
                     {"pid", process.pid},
                     {"program", process.program},
                     {"state", stateText()},
                     {"memory", process.memory},
                     {"uptime", process.uptime},
                     {"service", serviceOf(module)},
                     {"uniqueName", uniqueName}};
    if (!info.isEmpty())
        json.insert("info", info);
    return json;
}

wire::Message signOfLifeFrom(const ModuleReport& report) {
    return callTo(report.uniqueName, pathOf(report.module), DBUS_INTERFACE_INTROSPECTABLE, "Introspect");
}

bool isSignOfLife(DBusMessage* answer) {
    // An error of its own is an answer, too: the object is hidden, but somebody is at home. The bus daemon's says
    // that nobody is.
    return answer && !isFromBusDaemon(answer);
}

QJsonObject infoOf(Bus& bus, const ModuleReport& report, const QDeadlineTimer& end) {
    return infoIn(bus.call(questionFor(report, Question::Info), end).get());
}

QList<ModuleReport> lookAt(Bus& bus, const QStringList& modules, const QDeadlineTimer& end, Question question) {
    QList<ModuleReport> reports;
    QVector<quint32> calls;
    for (const QString& module : modules) {
        ModuleReport report;
        report.module = module;
        report.uniqueName = bus.ownerOf(module);
        if (report.uniqueName.isEmpty())
            continue; // it has left since its name was read
        report.process = processInfo(bus.processOf(report.uniqueName));
        report.state = stateOf(report.process, true);
        reports += report;
        calls += report.state == ModuleState::Running ? bus.send(questionFor(report, question)) : 0;
    }
    const auto areAllThere = [&] {
        return std::all_of(calls.begin(), calls.end(),
                           [&](quint32 call) { return call == 0 || bus.answerTo(call) != nullptr; });
    };
    (void)bus.waitUntil(areAllThere, end);
    for (int index = 0; index < reports.size(); ++index) {
        ModuleReport& report = reports[index];
        if (report.state != ModuleState::Running)
            continue;
        DBusMessage* const answer = bus.answerTo(calls.at(index));
        if (!isSignOfLife(answer))
            report.process = processInfo(report.process.pid); // it may have been stopped meanwhile
        report.state = stateOf(report.process, isSignOfLife(answer));
        report.info = infoIn(answer);
        if (isSignOfLife(answer) && !isError(answer))
            report.introspection = firstText(answer);
        if (report.introspection.size() >= longestText)
            report.introspection.clear();
    }
    for (const quint32 call : qAsConst(calls))
        bus.forget(call);
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
                           const QDeadlineTimer& end) {
    requireValidName(verb, "a module", module);
    const QList<ModuleReport> reports = lookAt(bus, {module}, end);
    if (reports.isEmpty())
        throw Failure{NotRunning, QString("cannot %1 '%2': there is no module '%3' on the bus; %4")
                                      .arg(verb, object, module, knownNames(bus.modules()))};
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
