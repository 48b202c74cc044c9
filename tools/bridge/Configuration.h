// What a bridge is told: which machine this is, the broker, what goes out and what comes in.
#pragma once

#include "Selection.h"

#include <QMap>
#include <QString>
#include <QStringList>

struct BrokerConfiguration {
    QString host; ///< a name or an address
    int port = 0; ///< 0 until it is read: then 8883 with TLS, 1883 without
    bool hasTls = false;
    QString authority; ///< absolute paths of PEM files; the key is this machine's, and has no passphrase
    QString certificate;
    QString key;
    QString user;
    QString password; ///< never shown
};

/// What is taken from one other machine.
struct ImportConfiguration {
    QStringList modules; ///< that look as if they ran here
    Selection events;
};

struct LimitConfiguration {
    int queueEvents = 10000;           ///< that wait for the broker or for who has not received them yet
    int queueBytes = 16 * 1024 * 1024; ///< of their payloads
    int payloadBytes = 256 * 1024;     ///< of one event, call or answer, either way
    int eventsPerSecond = 50000;       ///< from one machine
    int callsPerSecond = 1000;         ///< from all machines
    int callMs = 25000;                ///< for an answer to come back
    int pendingCalls = 1000;           ///< each way
    int awayMs = 60 * 60 * 1000;       ///< a machine away for longer is not waited for; its session ends, too
};

struct Configuration {
    QString machine;
    BrokerConfiguration broker;
    QStringList exportedModules; ///< that other machines may call
    Selection exportedEvents;
    QMap<QString, ImportConfiguration> imports; ///< by machine
    Selection controlOut;
    Selection controlIn;
    QString store; ///< absolute path of the file that outlives the bridge
    LimitConfiguration limits;

    /// Reads a configuration file and everything that can be known to be wrong in it: each mistake is one text of the form
    /// "FILE:LINE: KEY: what is wrong". The configuration is good for use when there is none.
    static Configuration read(const QString& fileName, QStringList& mistakes);
};
