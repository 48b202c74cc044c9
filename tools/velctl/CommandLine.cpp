// Reading the command line: the options of each command, help, and what is wrong with a line.
#include "CommandLine.h"

#include "ModuleNames.h"
#include "Status.h"

#include <QCommandLineParser>
#include <QFile>

#include <algorithm>
#include <cmath>

namespace velctl {

namespace {

struct OptionRow {
    const char* name;
    const char* valueName; ///< empty for a switch
    const char* help;
};

const OptionRow options[] = {
    {"json", "", "write one JSON object a line; for publish, read them"},
    {"timeout", "SECONDS", "end after that time, most often 5; 0 is without limit"},
    {"address", "ADDRESS", "the bus's, instead of DBUS_SESSION_BUS_ADDRESS"},
    {"help", "", "show this help"},
    {"version", "", "show the version"},
    {"names", "", "write only the names: of modules, methods or events"},
    {"all", "", "the modules too that are down, from the supervisor"},
    {"info", "", "what the module tells of itself too"},
    {"count", "N", "end after N events"},
    {"facility", "F", "change only the loggers of this facility"},
    {"as", "MODULE", "publish in the name of this module instead of velctl"},
    {"context", "TEXT", "the event's context text"},
    {"running", "MODULE", "wait until this module answers"},
    {"gone", "MODULE", "wait until this module has left the bus"},
    {"from", "MODULE", "only events that this module publishes"},
    {"rate", "", "tell every second how many events there were, by name"},
    {"calls", "", "calls and answers, too"},
    {"rotate", "SIZE", "begin a new file at that size: 64M, 1G"},
    {"keep", "N", "keep only the newest N files"},
    {"after", "SECONDS", "leave out what came before"},
    {"before", "SECONDS", "leave out what came later"},
    {"speed", "FACTOR", "so many times as fast"},
    {"flat-out", "", "as fast as the bus takes it"},
    {"control", "", "events that stop, reset, save or reconfigure modules, too"},
    {"dry-run", "", "only show what would be published"},
};
const std::vector<const char*> everywhere = {"json", "timeout", "address", "help"};

constexpr QChar minusOfANumber(0xE000); // of the private use area

const OptionRow& optionCalled(const char* name) {
    return *std::find_if(std::begin(options), std::end(options),
                         [name](const OptionRow& row) { return qstrcmp(row.name, name) == 0; });
}

std::vector<const char*> optionsOf(const Command& command) {
    std::vector<const char*> names = command.options;
    names.insert(names.end(), everywhere.begin(), everywhere.end());
    return names;
}

QString usageOf(const Command& command) {
    const QString synopsis = command.synopsis;
    return QString("velctl %1%2").arg(command.name, synopsis.isEmpty() ? synopsis : ' ' + synopsis);
}

QString helpOf(const Command& command) {
    QString text = QString("Usage: %1 [OPTION...]\n\n%2\n\nOptions:\n").arg(usageOf(command), command.details);
    for (const char* name : optionsOf(command)) {
        const OptionRow& option = optionCalled(name);
        const QString form = QString("--%1 %2").arg(option.name, option.valueName);
        text += "  " + form.leftJustified(20) + option.help + '\n';
    }
    return text + "\nExample:\n  " + command.example;
}

QString generalHelp() {
    QString text = "Usage: velctl COMMAND [ARGUMENT...] [OPTION...]\n\n"
                   "Shows and works on the modules of a running system, over the session bus.\n\nCommands:\n";
    for (const Command& command : commands())
        text += "  " + QString(command.name).leftJustified(13) + command.summary + '\n';
    text += "\nEvery command takes --json, --timeout SECONDS (5 unless given), --address ADDRESS of the bus, and\n"
            "--help, after the command or before it. 'velctl --version' shows the version.\n\n"
            "Statuses: 0 done, 1 failed, 2 usage, 3 module not running, 4 unknown method or event,\n"
            "5 the module answered an error, 7 no bus, 124 time limit, 130 interrupted.\n\n"
            "Example:\n  velctl status Tuner --help";
    return text;
}

[[noreturn]] void refuse(const Command& command, const QString& reason) {
    throw Failure{Usage, QString("cannot run '%1': %2; right is: %3").arg(command.name, reason, usageOf(command))};
}

// QCommandLineParser would take "-3" for options; a number stands for itself here.
QStringList withNumbersHidden(QStringList arguments) {
    for (QString& argument : arguments) {
        if (argument == "--")
            break;
        if (argument.size() > 1 && argument.at(0) == '-' && (argument.at(1).isDigit() || argument.at(1) == '.'))
            argument[0] = minusOfANumber;
    }
    return arguments;
}

QStringList withNumbersShown(QStringList arguments) {
    for (QString& argument : arguments) {
        if (argument.startsWith(minusOfANumber))
            argument[0] = '-';
    }
    return arguments;
}

QString problemOf(const QCommandLineParser& parser, const Command& command) {
    if (!parser.unknownOptionNames().isEmpty()) {
        QStringList known;
        for (const char* name : optionsOf(command))
            known += QString("--") + name;
        const QString written = parser.unknownOptionNames().first();
        const QString form = (written.size() > 1 ? "--" : "-") + written;
        return QString("there is no option '%1', %2").arg(form, knownNames(known));
    }
    QString text = parser.errorText();
    if (text.endsWith('.'))
        text.chop(1);
    return text.isEmpty() ? text : text.at(0).toLower() + text.mid(1);
}

double secondsOf(const QCommandLineParser& parser, const Command& command, const Request& request) {
    if (parser.isSet("timeout")) {
        bool isNumber = false;
        const QString written = withNumbersShown({parser.value("timeout")}).first();
        const double seconds = written.toDouble(&isNumber);
        if (!isNumber || seconds < 0 || !std::isfinite(seconds))
            refuse(command, QString("'%1' is no number of seconds").arg(written));
        return seconds;
    }
    // Input that somebody else produces has no time limit of its own either.
    const bool readsInput = qstrcmp(command.name, "publish") == 0 && request.arguments == QStringList("-");
    return readsInput ? 0 : command.seconds;
}

// Those that every command takes may stand before it; they are taken off the line.
QStringList optionsBeforeCommand(QStringList& arguments) {
    QStringList taken;
    while (!arguments.isEmpty() && arguments.first().startsWith("--")) {
        const QString name = arguments.first().mid(2).section('=', 0, 0);
        const bool isGeneral = name != "help" && std::any_of(everywhere.begin(), everywhere.end(),
                                                             [&](const char* known) { return name == known; });
        if (!isGeneral)
            break;
        const bool hasValue = *optionCalled(name.toLatin1().constData()).valueName && !arguments.first().contains('=');
        taken += arguments.takeFirst();
        if (hasValue && !arguments.isEmpty())
            taken += arguments.takeFirst();
    }
    return taken;
}

// The same that libdbus takes, but for starting a bus where there is none.
QString defaultAddress() {
    const QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    const QString path = qEnvironmentVariable("XDG_RUNTIME_DIR") + "/bus";
    return address.isEmpty() && QFile::exists(path) ? "unix:path=" + path : address;
}

Request requestOf(const QCommandLineParser& parser, const Command& command) {
    const auto valueOf = [&](const char* name) {
        const bool isKnown = std::any_of(command.options.begin(), command.options.end(),
                                         [name](const char* known) { return qstrcmp(known, name) == 0; });
        return isKnown ? withNumbersShown({parser.value(name)}).first() : QString();
    };
    Request request;
    request.arguments = withNumbersShown(parser.positionalArguments());
    request.json = parser.isSet("json");
    request.namesOnly = parser.optionNames().contains("names");
    request.info = parser.optionNames().contains("info");
    request.all = parser.optionNames().contains("all");
    request.facility = valueOf("facility");
    request.context = valueOf("context");
    request.running = valueOf("running");
    request.gone = valueOf("gone");
    request.from = valueOf("from");
    request.rate = parser.optionNames().contains("rate");
    for (const char* name : command.options) {
        if (parser.optionNames().contains(QLatin1String(name)))
            request.others.insert(QLatin1String(name), valueOf(name));
    }
    request.address = parser.isSet("address") ? parser.value("address") : defaultAddress();
    request.publisher = valueOf("as");
    if (request.publisher.isEmpty())
        request.publisher = "velctl";
    if (parser.optionNames().contains("count")) {
        const QString count = valueOf("count");
        bool isNumber = false;
        request.count = count.toInt(&isNumber);
        if (!isNumber || request.count < 1)
            refuse(command, QString("'%1' is no number of events").arg(count));
    }
    for (const char* name : {"as", "from", "running", "gone"}) {
        if (parser.optionNames().contains(name) && valueOf(name).isEmpty())
            refuse(command, QString("--%1 needs the name of a module").arg(name));
    }
    if (request.arguments.size() < command.fewest)
        refuse(command,
               QString("%1 is missing").arg(QString(command.synopsis).split(' ').value(request.arguments.size())));
    if (request.arguments.size() > command.most)
        refuse(command, QString("'%1' is one argument too many").arg(request.arguments.at(command.most)));
    return request;
}

} // namespace

Invocation readCommandLine(QStringList arguments) {
    Invocation invocation;
    QStringList before = optionsBeforeCommand(arguments);
    if (arguments.isEmpty())
        throw Failure{Usage, "cannot run without a command; 'velctl --help' shows all of them"};
    QString name = arguments.takeFirst();
    if (name == "--version") {
        invocation.text = "velctl " VELCTL_VERSION;
        return invocation;
    }
    if (name == "help" && !arguments.isEmpty()) {
        name = arguments.takeFirst();
        arguments = QStringList("--help");
    }
    if (name == "--help" || name == "-h" || name == "help") {
        invocation.text = generalHelp();
        return invocation;
    }
    const Command* command = commandCalled(name);
    if (!command) {
        QStringList known;
        for (const Command& one : commands())
            known += one.name;
        const char* const kind = name.startsWith('-') ? "option" : "command";
        throw Failure{Usage, QString("cannot run '%1': there is no such %2; %3").arg(name, kind, knownNames(known))};
    }

    QCommandLineParser parser;
    for (const char* option : optionsOf(*command)) {
        const OptionRow& row = optionCalled(option);
        parser.addOption(QCommandLineOption(QLatin1String(row.name), row.help, row.valueName));
    }
    const bool isParsed = parser.parse(QStringList("velctl") + withNumbersHidden(before + arguments));
    if (arguments.contains("-h") || (parser.optionNames().contains("help"))) {
        invocation.text = helpOf(*command);
        return invocation;
    }
    if (!isParsed)
        refuse(*command, problemOf(parser, *command));
    invocation.request = requestOf(parser, *command);
    invocation.command = command;
    invocation.request.limit = TimeLimit::start(secondsOf(parser, *command, invocation.request));
    return invocation;
}

} // namespace velctl
