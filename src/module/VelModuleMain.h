// The function with which a module's process begins, however the process is started.
#pragma once

#include "platform/VelExport.h"

/// Stands in the place of `int main(int argc, char** argv)`, in one source file of a module:
///
///     VEL_MODULE_MAIN(argc, argv) {
///         VelApplication application(argc, argv);
///         Tuner tuner;
///         return application.exec();
///     }
///
/// It defines main(), so a program made of it is executed as always. vel_add_module() builds a shared object of the same
/// sources beside the program; vel-launcher loads that into a process that it has forked, and calls this function there,
/// once, on the process's first thread. Arguments, environment, folder and descriptors are those that an executed process
/// would have.
///
/// Result:   the status of the process.
/// Do not:   rely on /proc/self/exe, which is vel-launcher there; argv[0] is the module's program in both.
#define VEL_MODULE_MAIN(argc, argv)                                                                                    \
    extern "C" VEL_EXPORT int velModuleMain(int, char**);                                                              \
    int main(int count, char** arguments) {                                                                            \
        return velModuleMain(count, arguments);                                                                        \
    }                                                                                                                  \
    int velModuleMain(int argc, char** argv)
