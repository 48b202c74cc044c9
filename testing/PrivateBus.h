// A message bus of one's own: a dbus-daemon that nobody else uses and that dies with this process; or a dbus-broker,
// where VEL_TEST_BROKER=dbus-broker is in the environment.
#pragma once

#include "testing/ChildProcess.h"

#include <QTemporaryDir>

class PrivateBus {
public:
    /// Starts the daemon and makes it the session bus of this process and of every child it starts from then on. Qt
    /// reads the address once per process, so this comes before the first QDBusConnection::sessionBus().
    PrivateBus();

    /// Whether it is dbus-broker, for the few things that the two do differently.
    static bool isBroker();

    /// What has to be there for the bus to start.
    static QString program();

    bool isRunning() const { return !m_address.isEmpty(); }
    const QString& address() const { return m_address; }
    qint64 processId() const { return m_daemon.processId(); }

    /// Ends the daemon and waits for its end: every connection is lost then.
    void stop();

private:
    QTemporaryDir m_folder;
    ChildProcess m_daemon;
    QString m_address;
};
