// The exit statuses of a module process, and texts for them and for QProcess errors.
#pragma once

#include "platform/VelExport.h"

#include <QString>

/// How a module process ended. The process's exit status is the enumerator's number.
enum VelExitCode {
    VelUnknownError = 0,   ///< named, never set by the library
    VelNormalExit = 1,     ///< a normal end (not 0), and the help text
    VelDeployError = 2,    ///< deploy() answered false or threw
    VelInitError = 3,      ///< init() answered false or threw
    VelRunError = 4,       ///< run() answered false or threw; the module went on until it was stopped
    VelStopError = 5,      ///< stop() answered false or threw
    VelKilled = 6,         ///< named, never set by the library
    VelAlreadyRunning = 7, ///< another process already answers for the module's name
    VelLibsError = 127     ///< named, never set by the library (the loader's status for a missing library)
};

/// The text of an exit status: "NORMAL_EXIT [1]"; "[42]" for a number without a name.
///
/// Thread:   any.
VEL_EXPORT QString getExitCodeInString(int code);

/// The text of a QProcess::ProcessError: "Crashed [1]"; the bracketed number alone outside 0 to 5.
///
/// Thread:   any.
VEL_EXPORT QString getProcessErrorInString(int error);
