// velctl start, restart, save and restore: what the supervisor does, with the states that modules pass meanwhile.
#include "Commands.h"
#include "Event.h"
#include "ModuleNames.h"
#include "ModuleReport.h"
#include "Output.h"
#include "Supervisor.h"

#include "wire/Appender.h"

#include <QJsonArray>

namespace velctl {

namespace {

// Tells the states through which modules go, until the answer is there. False when the limit came first.
bool isAnswered(Bus& bus, quint32 call, const QStringList& concerned) {
    constexpr qint64 intervalMs = 1000;
    const TimeLimit& limit = bus.limit();
    QMap<QString, QString> told;
    const auto hasAnswer = [&] { return bus.answerTo(call) != nullptr; };
    while (!bus.waitUntil(hasAnswer, std::min(limit.end(), QDeadlineTimer(intervalMs, Qt::PreciseTimer)))) {
        if (limit.hasPassed())
            return false;
        const QMap<QString, QJsonObject> modules = supervisedModules(bus, limit.forSignsOfLife());
        for (auto module = modules.cbegin(); module != modules.cend(); ++module) {
            const QString state = module->value("State").toString();
            const bool isSettled = state == "up" || state == "down" || (concerned.isEmpty() && state == "waiting");
            if (!concerned.isEmpty() && !concerned.contains(module.key()))
                continue;
            if (told.value(module.key()) != state && (!isSettled || told.contains(module.key())))
                printMessage(module.key() + " is " + state);
            if (!isSettled || told.contains(module.key()))
                told.insert(module.key(), state);
        }
    }
    return true;
}

void print(const Request& request, const QString& verb, DBusMessage* answer) {
    DBusMessageIter value, name;
    QStringList texts;
    if (dbus_message_has_signature(answer, "s")) {
        texts += firstText(answer);
    } else if (dbus_message_has_signature(answer, "as") && dbus_message_iter_init(answer, &value)) {
        dbus_message_iter_recurse(&value, &name);
        for (; dbus_message_iter_get_arg_type(&name) == DBUS_TYPE_STRING; dbus_message_iter_next(&name))
            texts += textOf(name);
    }
    if (request.json)
        return printLine(QJsonObject{{"done", verb}, {"answer", QJsonArray::fromStringList(texts)}});
    for (const QString& text : qAsConst(texts))
        printLine(text);
}

// A method of the supervisor's, with one text or none.
int askSupervisor(const Request& request, const QString& verb, const QString& method) {
    const QString object = request.arguments.isEmpty() ? QString("all") : request.arguments.join(' ');
    for (const QString& module : request.arguments)
        requireValidName(verb, "a module", module);
    Bus bus(request.limit, request.address);
    const ModuleReport supervisor = requireModule(bus, verb, object, supervisorName, request.limit.forSignsOfLife());
    wire::Message call = callTo(supervisor.uniqueName, pathOf(supervisorName), commonInterface(), method);
    if (!request.arguments.isEmpty())
        wire::Appender(call.get()).text('s', request.arguments.join(' '));
    const quint32 number = bus.send(std::move(call));
    if (!isAnswered(bus, number, request.arguments))
        throw Failure{TimeLimitReached,
                      QString("cannot %1 '%2': the supervisor has not answered within %3, and goes on")
                          .arg(verb, object, request.limit.text())};
    DBusMessage* const answer = bus.answerTo(number);
    if (isError(answer) && isFromBusDaemon(answer))
        throw Failure{NotRunning,
                      QString("cannot %1 '%2': the supervisor left the bus without an answer").arg(verb, object)};
    if (isError(answer))
        throw Failure{AnsweredError, firstText(answer)}; // it says itself what it cannot do, and why
    print(request, verb, answer);
    return Ok;
}

} // namespace

int runStart(const Request& request) {
    return askSupervisor(request, "start", "startModule");
}

int runRestart(const Request& request) {
    return askSupervisor(request, "restart", "restartModule");
}

int runSave(const Request& request) {
    return askSupervisor(request, "save", "save");
}

int runRestore(const Request& request) {
    return askSupervisor(request, "restore", "restore");
}

} // namespace velctl
