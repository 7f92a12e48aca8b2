#pragma once

#include <string>

#include "sim/shell/host_command.h"

namespace sim {

class Log;
class Root;

// The workstation's programs that the phone's shell may run: tar, rm, cp, chmod, touch. They are
// started without a shell, with a fixed environment, in the phone's "/".

// Runs the command to its end; returns its wait status. The first page of its error output goes to
// `log`.
int runHostProgram(const Root& root, Log& log, const HostCommand& command, int outputFd);

// The exit status of a program that finds no room for what it writes; 0 if it writes nothing.
int statusOnFullDisk(const std::string& program);

}  // namespace sim
