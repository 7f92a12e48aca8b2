#pragma once

#include <map>
#include <string>

namespace CLI {
class App;
}

namespace commandline {

// Adds the list of exit codes, each with its meaning, to the end of the help of a program or a
// verb.
void listExitCodes(CLI::App& app, const std::map<int, std::string>& meanings);

}  // namespace commandline
