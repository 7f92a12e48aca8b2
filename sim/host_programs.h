#pragma once

#include <string>
#include <vector>

namespace sim {

class Root;

// The workstation's programs that the phone's shell may run: tar, rm, cp, chmod, touch. They are
// started without a shell, with a fixed environment, in the phone's "/", every path mapped below
// it and only with the options listed for them.

// The arguments that `words` (after the program's name) become. Returns false and says why when
// an option or a path is refused; `program` must be one of the five.
bool hostArguments(const Root& root, const std::string& program,
                   const std::vector<std::string>& words, std::vector<std::string>& arguments,
                   std::string& why);

bool isHostProgram(const std::string& name);

// The status it ends with when there is no room for what it writes; 0 if it writes nothing.
int statusOnFullDisk(const std::string& program);

// Runs it to its end; a wait status. What it says on its error output goes to the phone's log.
int runHostProgram(const Root& root, const std::vector<std::string>& arguments, int outputFd);

}  // namespace sim
