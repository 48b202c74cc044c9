#include "Dimmer.h"

#include <VelApplication>
#include <VelUnixSignals>

#include <csignal>

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    Dimmer module;
    velStopOnSignals(module, {SIGTERM, SIGINT});
    return application.exec();
}
