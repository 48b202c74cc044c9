// A test that never ends: a bus, a module on it, and who they are.
#include "testing/Assert.h"
#include "testing/ModuleProcess.h"

using namespace vel::testing;

int main(int argc, char** argv) {
    return runOnPrivateBus(argc, argv, [](int, char** arguments) {
        ModuleProcess module("Left", arguments[1]);
        VEL_REQUIRE(module.bringUp());
        const PrivateBus& bus = *PrivateBus::current();
        std::printf("ready %s %lld %lld\n", qPrintable(bus.address()), bus.processId(), module.processId());
        std::fflush(stdout);
        return QCoreApplication::exec();
    });
}
