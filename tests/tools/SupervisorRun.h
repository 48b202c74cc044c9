// One run of the supervisor: a configuration in a folder of its own, on a bus of its own.
#pragma once

#include "SkipList.h"
#include "testing/BuiltProgram.h"
#include "testing/PrivateBus.h"

#include <QDBusConnection>
#include <QDBusPendingCall>
#include <QDBusReply>
#include <QDir>
#include <QJsonObject>
#include <QTemporaryDir>

#include <sys/types.h>

using vel::testing::ChildProcess;
using vel::testing::PrivateBus;

class SupervisorRun {
public:
    SupervisorRun();

    /// Kills the supervisor if it still runs, and lets every gate go.
    ~SupervisorRun();

    /// Adds a module of the test's own program; `values` are further keys of its configuration.
    void addModule(const QString& name, const QStringList& arguments = {}, const QJsonObject& values = {});

    /// The same with a data folder, which is made.
    void addKeeper(const QString& name, const QStringList& arguments = {});

    /// A key of the configuration itself.
    void set(const QString& key, const QJsonValue& value) { m_root[key] = value; }

    /// Sets the command of a save or a restore to this text for the shell.
    void setCommand(const QString& key, const QString& shellText, double limitSeconds = 600);

    /// Adds a key to a module that was added.
    void setOfModule(const QString& name, const QString& key, const QJsonValue& value);

    /// Writes the configuration and starts the supervisor on it. With the name of a file, its log goes there.
    [[nodiscard]] bool start(const QString& log = QString());

    /// Starts a module of the configuration as somebody else would, and waits until it runs.
    [[nodiscard]] bool startByHand(ChildProcess& process, const QString& name) const;

    /// The supervisor's process: its lines are its own and its modules'.
    ChildProcess& process() { return m_process; }

    vel::testing::Result waitForLine(const QString& text) { return m_process.waitForLine(text); }
    [[nodiscard]] bool waitUntilUp(const QStringList& modules);

    /// Whether there is a line with that text, and where the first one stands.
    bool hasLine(const QString& text) const { return indexOfLine(text) >= 0; }
    int indexOfLine(const QString& text) const;

    /// The path of a file in the configuration's folder.
    QString path(const QString& name) const { return QDir(m_folder.path()).filePath(name); }

    /// Makes a pipe that a module waits at, and the option that tells it so.
    QString gate(const QString& name);

    /// Lets through whoever waits there, or comes.
    void openGate(const QString& name);

    PrivateBus& bus() { return m_bus; }
    const QDBusConnection& connection() const { return m_connection; }

    /// Calls a method of a module; the answer is waited for by whoever asks for it.
    QDBusPendingCall call(const QString& module, const QString& method, const QVariantList& arguments = {}) const;

    /// The answer of the supervisor: its text, or that of its error.
    QString answer(const QString& method, const QString& argument) const;
    static QString textOf(QDBusPendingCall call);

    [[nodiscard]] bool publish(const QString& event) const;

    /// The process that has the module's name on the bus; 0 when nobody has.
    pid_t processOf(const QString& module) const;

    /// Whether the module handles calls.
    bool isServing(const QString& module) const;

private:
    PrivateBus m_bus;
    QDBusConnection m_connection;
    QTemporaryDir m_folder;
    QJsonObject m_root;
    QList<int> m_gates;
    ChildProcess m_process;
};

/// The state letter of a process; 0 when there is none.
char processState(pid_t process);

/// Waits until the process is in one of these states; 0 stands for its end.
[[nodiscard]] bool waitForState(pid_t process, const QByteArray& states);

/// The children of a process.
QList<pid_t> childrenOf(pid_t process);

QString nameOf(pid_t process);
