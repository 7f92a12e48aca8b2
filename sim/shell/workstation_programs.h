#pragma once

#include <string>

#include "sim/shell/workstation_command.h"

namespace sim {

class Log;
class Root;

// The workstation's programs that the phone's shell may run: tar, rm, cp, chmod, touch. They are
// started without a shell, with a fixed environment, in the phone's "/"; they end with this
// process.

// Runs the command to its end; returns its wait status. The first page of its error output goes to
// `log`.
int runWorkstationProgram(const Root& root, Log& log, const WorkstationCommand& command,
                          int outputFd);

// The program's exit status when the disk is full; 0 for one that needs no room.
int statusOnFullDisk(const std::string& program);

}  // namespace sim
