// The table of commands.
#include "Commands.h"

#include <limits>

namespace velctl {

namespace {

constexpr int anyNumber = std::numeric_limits<int>::max();

// Seconds: modules answer at once, start and end in some seconds, and have any amount of data.
constexpr int usual = 5;
constexpr int forStarts = 60;
constexpr int forData = 600;

} // namespace

const std::vector<Command>& commands() {
    // clang-format off
    static const std::vector<Command> table = {
        {"list", "", "every module on the bus",
         "Shows each module's name, process, state, memory, time since its start, and program. The state is\n"
         "running, saved (the module has stopped itself for a save or a restore), stopped (from outside),\n"
         "traced (held by a debugger) or unresponsive (no answer within a second). With --all, the modules of\n"
         "the supervisor's configuration too that are down, with their restarts and their last end.",
         "velctl list --all",
         {"names", "all"}, 0, 0, usual, runList},
        {"status", "MODULE", "one module, with its bus names and methods",
         "Shows what list shows, the bus names, the exported methods with their types, and what the process\n"
         "waits for when it does not answer; with --info, the step of its lifecycle, its log level, the events\n"
         "that it has subscribed and its last error; of a module that is down, what the supervisor knows.\n"
         "Ends with 3 when the module is stopped or down, and with 124 when it does not answer.",
         "velctl status Tuner",
         {"names", "info"}, 1, 1, usual, runStatus},
        {"watch", "[EVENT...]", "events as they are published",
         "Shows each event of those names, or every event: time, publishing module, name, context, arguments\n"
         "with their types. In a name, * and ? stand for any characters and for one. --from takes the events\n"
         "of one module only; --rate tells every second how many events there were, by name. Goes on until it\n"
         "is interrupted, unless a time limit or a count is given; without a count, the end of a given time\n"
         "limit is success. Events that come faster than the output is read are counted and not shown.",
         "velctl watch 'station_*' --from Tuner",
         {"count", "from", "rate"}, 0, anyNumber, 0, runWatch},
        {"publish", "EVENT [NAME=VALUE...]", "publish an event",
         "A VALUE is typed by its form: 7, true, 2.5, [a,b], and else text. NAME:=TYPE:VALUE names the type:\n"
         "level:=int:7; a type is a name or a D-Bus signature. 'velctl publish --json -' publishes the lines\n"
         "of 'velctl watch --json' from standard input, byte by byte as they were. Ends with 4 when nobody\n"
         "has subscribed the event.",
         "velctl publish log_level_changed syslog_facility=Tuner syslog_level:=int:7",
         {"as", "context"}, 1, anyNumber, usual, runPublish},
        {"call", "MODULE METHOD [ARG...]", "call a method of a module",
         "Calls a method of the common interface. The arguments are converted to the types that the module\n"
         "tells, containers from JSON or [a,b]; the answer is shown with its type.",
         "velctl call Tuner tune 2",
         {}, 2, anyNumber, usual, runCall},
        {"wait", "EVENT [NAME=VALUE...] | --running MODULE | --gone MODULE",
         "wait for an event, a module's start or its end",
         "Waits until the event is published, with arguments whose texts are those values, and by the module\n"
         "that --from names; until the module is on the bus and answers; or until it has left the bus.",
         "velctl wait --running Tuner --timeout 30",
         {"running", "gone", "from"}, 0, anyNumber, usual, runWait},
        {"subscribers", "[EVENT]", "the modules that have subscribed an event",
         "Asks every module. Ends with 4 when none has subscribed the event, and tells who did not answer.\n"
         "Without an event, shows all events that modules have subscribed; with --names, only their names.",
         "velctl subscribers station_changed",
         {"names"}, 0, 1, usual, runSubscribers},
        {"loglevel", "LEVEL", "change the log level",
         "Publishes log_level_changed and shows to which modules it was sent. LEVEL is 0 to 7, or silent,\n"
         "error, warning, info, debug. Without a facility the level is for all loggers; with one, for those\n"
         "that the platform's logging library knows under it, as a rule those of the module of that name.",
         "velctl loglevel debug --facility Tuner",
         {"facility"}, 1, 1, usual, runLogLevel},
        {"mtrace", "on|off MODULE", "switch memory tracing on or off",
         "Publishes mtrace_on or mtrace_off for the module, and shows whether it was sent to it. Says so when\n"
         "the module's process was started without what tracing needs.",
         "velctl mtrace on Tuner",
         {}, 2, 2, usual, runMemoryTracing},
        {"reset", "default|factory", "reset the data of all modules",
         "Publishes the reset and waits for each module's answer. Shows who answered, who wants a reboot,\n"
         "and who is missing and why. An answer counts when it comes from the module of which it tells.",
         "velctl reset default --timeout 30",
         {}, 1, 1, usual, runReset},
        {"stop", "MODULE", "stop a module",
         "Publishes stop_module_MODULE and waits until the module has left the bus and its process has ended.",
         "velctl stop Tuner",
         {}, 1, 1, usual, runStop},
        {"describe", "PROGRAM...", "the events and calls of programs, and where they do not fit",
         "Starts each program with --describe, without a bus: it prints what it publishes, hears and calls with\n"
         "types, and ends. A file that is not executable is such a description that was saved. Shows every event\n"
         "with its fields, who publishes and who hears it, what differs between them, and what nobody hears or\n"
         "publishes. Ends with 1 when something differs or a program says nothing. The time limit is 60 s.",
         "velctl describe /usr/lib/radio/*",
         {}, 1, anyNumber, forStarts, runDescribe},
        {"start", "MODULE", "have the supervisor start a module",
         "Ends when the module is up, or with the reason why it is not. The states through which modules go\n"
         "are told meanwhile. The time limit is 60 s unless given.",
         "velctl start Tuner",
         {}, 1, 1, forStarts, runStart},
        {"restart", "MODULE", "have the supervisor end a module and start it again",
         "Ends when the module is up again, or with the reason why it is not. The time limit is 60 s unless\n"
         "given.",
         "velctl restart Tuner",
         {}, 1, 1, forStarts, runRestart},
        {"save", "[MODULE...]", "have the supervisor save the data of modules",
         "Saves the data folders of those modules, or of all that have one, and shows whose were saved. The\n"
         "states through which modules go are told meanwhile. The time limit is 600 s unless given.",
         "velctl save Playlists",
         {}, 0, anyNumber, forData, runSave},
        {"restore", "[MODULE...]", "have the supervisor restore the data of modules",
         "The same for bringing saved data back.",
         "velctl restore Playlists",
         {}, 0, anyNumber, forData, runRestore},
#ifdef VELCTL_RECORDINGS
        {"record", "FILE [EVENT...]", "write what passes on the bus to a file",
         "Writes every event, call and answer, or the events of those names alone, until it is interrupted or\n"
         "the time limit has passed. The file is pcap with the link type of D-Bus, which Wireshark and Bustle\n"
         "open; - is standard output. With --calls, calls and answers beside the chosen events. With --rotate,\n"
         "files of that size in turn, FILE.00001 and so on, of which --keep keeps the newest. Tells at the end\n"
         "how much there was and what is known to be missing.",
         "velctl record trip.pcap --timeout 60",
         {"calls", "rotate", "keep"}, 1, anyNumber, 0, runRecord},
        {"replay", "FILE [EVENT...]", "publish the events of a recording again",
         "Publishes the events of those names, or all, byte by byte as they were, in their rhythm. Events that\n"
         "stop, reset, save or reconfigure modules are left out and listed, unless --control is given. With\n"
         "--as, takes the place of a module that is missing: publishes its events and answers calls as it did.\n"
         "--after and --before are seconds from the recording's begin.",
         "velctl replay trip.pcap 'station_*' --speed 4",
         {"from", "after", "before", "speed", "flat-out", "control", "dry-run", "as"}, 1, anyNumber, 0, runReplay},
        {"stats", "FILE", "count what is in a recording",
         "Shows each event with its number, rate and bytes, and each method with the times until its answers:\n"
         "the middle one, that of 99 in 100, and the slowest; errors, and calls that nobody answered.",
         "velctl stats trip.pcap",
         {}, 1, 1, 0, runStats},
        {"trace", "FILE", "a recording as a trace for viewers",
         "Writes a recording as JSON that Perfetto's viewer (ui.perfetto.dev) and Chrome's (chrome://tracing)\n"
         "open: each module with the time that it was on the bus, its events, and its calls from the question\n"
         "to the answer, with all arguments.",
         "velctl trace trip.pcap > trip.json",
         {}, 1, 1, 0, runTrace},
#endif
    };
    // clang-format on
    return table;
}

const Command* commandCalled(const QString& name) {
    for (const Command& command : commands()) {
        if (name == QLatin1String(command.name))
            return &command;
    }
    return nullptr;
}

} // namespace velctl
