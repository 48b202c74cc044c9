// A test program with a bus of its own and a VelApplication, for tests that host one module in their own process.
#pragma once

#include "testing/QtTest.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>

using vel::testing::ChildProcess;
using vel::testing::PrivateBus;

namespace bustest {

/// The bus of this program.
PrivateBus& bus();

/// A connection of its own to the bus, as another process would have: its name is made from `name`.
QDBusConnection connectAs(const QString& name);

/// Waits until the bus has taken everything that was sent on `connection`. A subscription is in force only then: what
/// another connection publishes earlier may pass it.
void waitForBus(const QDBusConnection& connection);

/// Publishes an event on `connection` as the module called `moduleName` would, after what was subscribed on the session
/// bus is in force. Returns whether it was sent.
[[nodiscard]] bool publish(const QDBusConnection& connection, const QString& moduleName, const QString& event,
                           const QVariantMap& arguments = QVariantMap());

/// Calls a method of the common interface of the module called `moduleName`, without a proxy, and waits for the
/// answer.
QDBusMessage call(const QDBusConnection& connection, const QString& moduleName, const QString& method,
                  const QVariantList& arguments = QVariantList());

/// Waits until everything that was sent before on this thread's connections has passed the bus daemon, and what it
/// routed to this process has been delivered.
void settle(const QDBusConnection& connection);

/// The process that has the module's name on the bus; 0 when none has.
pid_t processOf(const QString& moduleName);

/// What starts that program of this build.
QString program(const QString& name);

} // namespace bustest
