// A process that has been forked with everything loaded, and waits to be told which module it is.
#pragma once

#include <sys/types.h>

/// The spare's whole life, from just after the fork. Does not return.
///
/// `socket` is where requests come and replies go. `starter` must be its parent by now. `tellTaken` is a socket; its end
/// after one byte tells the launcher that a request was taken and another spare is needed; without the byte, that
/// the spare has ended unused.
[[noreturn]] void waitAndBecome(int socket, pid_t starter, int tellTaken);
