// main() of a test program that has a bus of its own.
#pragma once

#include "testing/PrivateBus.h"

#include <VelApplication>

#include <QDBusConnection>
#include <QDBusMessage>

#include <cstdio>
#include <functional>

namespace vel::testing {

/// Starts a PrivateBus, then makes the VelApplication, calls `test`, and returns what it returns; 1 when there is no bus.
///
/// Inside of `test` a module may be made in this process, one in the life of the process: `Dimmer dimmer;`. Its hooks run
/// from the event loop, which every wait of this library turns. `test` gets the arguments of the command line, the module
/// none of them.
///
///     int main(int argc, char** argv) {
///         return vel::testing::runOnPrivateBus(argc, argv, [](int count, char** arguments) {
///             testing::InitGoogleTest(&count, arguments);
///             return RUN_ALL_TESTS();
///         });
///     }
inline int runOnPrivateBus(int argc, char** argv, const std::function<int(int, char**)>& test) {
    const PrivateBus bus;
    if (!bus.isRunning()) {
        std::fprintf(stderr, "%s\nnothing was tested\n", bus.isRunning().text().constData());
        return 1;
    }
    int applicationArgc = 1;
    VelApplication application(applicationArgc, argv);
    // Qt holds back what arrives before a connection's first turn of the event loop, and may deliver it after what
    // came later. Tests rely on order, so that turn is over before they begin.
    QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId"));
    QCoreApplication::processEvents();
    return test(argc, argv);
}

} // namespace vel::testing
