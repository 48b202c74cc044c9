// The table of commands.
#pragma once

#include "Status.h"
#include "TimeLimit.h"

#include <QMap>
#include <QStringList>

#include <vector>

namespace velctl {

/// What was written on the command line, after the command's name.
struct Request {
    QStringList arguments;
    bool json = false;
    bool namesOnly = false;
    bool info = false;
    bool all = false; ///< those of the supervisor too
    int count = 0;    ///< 0 is without end
    QString facility;
    QString publisher;
    QString context;
    QString running;
    QString gone;
    QString from; ///< the publishing module; empty is any
    bool rate = false;
    QString address;               ///< of the bus
    QMap<QString, QString> others; ///< what was given of the options that one command has alone; a switch is empty
    TimeLimit limit;
};

struct Command {
    const char* name;
    const char* synopsis; ///< what follows the name
    const char* summary;
    const char* details;
    const char* example;
    std::vector<const char*> options; ///< names of rows in the table of options
    int fewest;                       ///< number of arguments
    int most;
    int seconds; ///< the time limit unless one is given; 0 is none
    int (*run)(const Request&);
};

const std::vector<Command>& commands();

/// Null when there is none of that name.
const Command* commandCalled(const QString& name);

// The commands: each returns the exit status, or throws a Failure.
int runList(const Request& request);
int runStatus(const Request& request);
int runWatch(const Request& request);
int runPublish(const Request& request);
int runCall(const Request& request);
int runWait(const Request& request);
int runLogLevel(const Request& request);
int runMemoryTracing(const Request& request);
int runReset(const Request& request);
int runStop(const Request& request);
int runSubscribers(const Request& request);
int runDescribe(const Request& request);
int runStart(const Request& request);
int runRestart(const Request& request);
int runSave(const Request& request);
int runRestore(const Request& request);
int runRecord(const Request& request);
int runReplay(const Request& request);
int runStats(const Request& request);
int runTrace(const Request& request);

} // namespace velctl
