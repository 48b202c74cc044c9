// The function with which a module's process begins, however the process is started.
#pragma once

#include "platform/VelExport.h"

/// Stands in the place of `int main(int argc, char** argv)` in a module that vel_add_module() builds:
///
///     VEL_MODULE_MAIN(argc, argv) {
///         VelApplication application(argc, argv);
///         Tuner tuner;
///         return application.exec();
///     }
///
/// A program made so is executed as always. Beside it lies the same module as a shared object, which vel-launcher loads
/// into a process that it has forked; this function is then called there, once, on the process's first thread.
/// Arguments, environment, folder and descriptors are those that an executed process would have.
///
/// Result:   the status of the process.
/// Do not:   rely on /proc/self/exe, which is vel-launcher there; argv[0] is the module's program in both.
#define VEL_MODULE_MAIN(argc, argv) extern "C" VEL_EXPORT int velModuleMain(int argc, char** argv)

VEL_MODULE_MAIN(argc, argv);
