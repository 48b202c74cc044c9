// velctl loglevel: the log level of every module.
#include "Commands.h"
#include "ControlEvent.h"
#include "ModuleReport.h"

namespace velctl {

namespace {

constexpr int highestLevel = 7;

int levelOf(const QString& text) {
    const QList<QPair<QString, int>> names = {{"silent", 0}, {"error", 3}, {"warning", 4}, {"info", 6}, {"debug", 7}};
    for (const auto& [name, level] : names) {
        if (text == name)
            return level;
    }
    bool isNumber = false;
    const int level = text.toInt(&isNumber);
    if (isNumber && level >= 0 && level <= highestLevel)
        return level;
    throw Failure{Usage, QString("cannot set the log level '%1': there is no such level; right is 0 to 7, or "
                                 "silent, error, warning, info, debug")
                             .arg(text)};
}

} // namespace

int runLogLevel(const Request& request) {
    const int level = levelOf(request.arguments.first());
    Bus bus(request.limit, request.address);
    const QStringList modules = bus.modules();
    if (modules.isEmpty())
        printMessage("there is no module on the bus that could take the level");
    return sendControlEvent(
        request, bus, "log_level_changed",
        {wire::textArgument("syslog_facility", request.facility), wire::intArgument("syslog_level", level)}, modules);
}

} // namespace velctl
