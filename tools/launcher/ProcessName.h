// The name under which a process is shown: in ps, in /proc/PID/comm and in /proc/PID/cmdline.
#pragma once

#include <string>
#include <vector>

/// To be called once, first of all in main(): remembers where the kernel has put the arguments and the environment, and
/// gives the environment another place, so that theirs can be written over.
void reserveProcessName(char** argv);

/// From now on the process is shown with these arguments. Exactly so where the kernel lets a process say where its
/// arguments are (CONFIG_CHECKPOINT_RESTORE); else joined by blanks, cut where the old arguments and environment ended.
void setProcessName(const std::vector<std::string>& arguments);
