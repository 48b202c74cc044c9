// A message bus of one's own.
#pragma once

#include "testing/ChildProcess.h"

#include <QTemporaryDir>

#include <memory>

namespace vel::testing {

/// A dbus-daemon that nobody else uses. It ends with this object, and with this process however that ends; it leaves no
/// file behind, for its address is an abstract one.
///
/// One for a test program: runOnPrivateBus() makes it. One for each test case: a member of the fixture; each Peer,
/// Recorder, FakeModule and child process uses the one that was made last before it. Qt's own sessionBus() keeps the first
/// of a process for ever, so modules in the test's own process go with the first way.
///
/// Thread:   that of ChildProcess.
class PrivateBus {
public:
    /// Starts the daemon and makes it the session bus of this process, and of every child that it starts from then on. Qt
    /// reads the address once per process, so this comes before the first QDBusConnection::sessionBus().
    PrivateBus();

    /// Ends the daemon; the session bus is what it was before.
    ~PrivateBus();

    /// Whether there is a bus, or why there is none.
    const Result& isRunning() const { return m_isRunning; }

    const QString& address() const { return m_address; }
    qint64 processId() const { return m_daemon.processId(); }

    /// Ends the daemon and waits for its end: every connection is lost then.
    void stop();

    /// The one made last that lives; null when there is none.
    static PrivateBus* current();

    /// Whether it is a dbus-broker, as VEL_TEST_BROKER=dbus-broker in the environment demands: for the few things that the
    /// two do differently. Needs the program broker-launcher beside this one.
    static bool isBroker();

private:
    PrivateBus* const m_outer;
    const QByteArray m_outerAddress;
    std::unique_ptr<QTemporaryDir> m_brokerFolder;
    ChildProcess m_daemon;
    QString m_address;
    Result m_isRunning = Result::success();
};

} // namespace vel::testing
