#include "Dimmer.h"

#include <VelApplication>
#include <VelModuleMain>
#include <VelUnixSignals>

#include <csignal>

VEL_MODULE_MAIN(argc, argv) {
    VelApplication application(argc, argv);
    Dimmer module;
    velStopOnSignals(module, {SIGTERM, SIGINT});
    return application.exec();
}
