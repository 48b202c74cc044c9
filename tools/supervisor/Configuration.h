// What the supervisor is told: the modules, what each waits for, and how their data is saved.
#pragma once

#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVector>

constexpr int highestModuleCount = 1000;

/// When and how often a module that has ended is started again.
struct RestartPolicy {
    QSet<QString> causes = {
        "signal"};              ///< exit statuses as numbers, "signal", "slowStart", "failedStart", "unresponsive"
    int attempts = 5;           ///< so many in a row, then the supervisor gives up
    int firstDelayMs = 1000;    ///< doubled at each attempt
    int longestDelayMs = 60000; ///< up to this
    int steadyMs = 60000;       ///< once a module was up for so long, its earlier ends are forgotten
};

/// A program that works on modules; the path is empty when there is none.
struct CommandConfiguration {
    QString program;       ///< an absolute path
    QStringList arguments; ///< what it is to work on follows
    int limitMs = 600000;
};

/// How a module's event loop is asked whether it still turns.
struct AliveConfiguration {
    int everyMs = 0; ///< 0: it is not asked
    int limitMs = 15000;
    CommandConfiguration dump; ///< is given the process id of one that does not answer
};

struct ModuleConfiguration {
    QString name;
    QString program; ///< an absolute path
    QStringList arguments;
    QMap<QString, QString> environment;
    QStringList waitsFor; ///< names of modules that are up before this one is started
    int startLimitMs = 30000;
    int stopLimitMs = 10000;
    RestartPolicy restart;
    AliveConfiguration alive;
    QString dataFolder; ///< an absolute path; empty for a module without data
    bool isForked = false;
};

struct Configuration {
    QString folder; ///< of the file: relative paths start there, and the modules' working folder
    QVector<ModuleConfiguration> modules;
    CommandConfiguration save; ///< for both the folders follow
    CommandConfiguration restore;
    QStringList launcherLibraries = {VEL_LIBRARY}; ///< what forked modules find loaded
    int answerLimitMs = 10000;                       ///< for a module to be ready for a save or a restore

    /// Reads a configuration file and everything that can be known to be wrong in it: each mistake is one text of the form
    /// "FILE:LINE: KEY: what is wrong". The configuration is good for use when there is none.
    static Configuration read(const QString& fileName, QStringList& mistakes);
};
