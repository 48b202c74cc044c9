// The programs of this build, as a test starts them.
#pragma once

#include <QString>

/// What starts the program that the build called `name`: the program beside this one or, where this machine cannot run
/// what was built, the script that runs it in an emulator. A program of that name in the folder that VEL_TEST_STARTERS
/// names goes first: a starter that runs the program in another way.
QString builtProgram(const QString& name);
