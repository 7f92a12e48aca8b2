#pragma once

#include <optional>

namespace CLI {
class App;
}

namespace commandline {

// The exit code of every program for a command line that it does not understand.
constexpr int kUsageError = 2;

// Adds --version and parses the command line; other options and verbs have been added. Returns
// nothing when the program is to go on. Otherwise help or the like has been printed, or one line on
// stderr about what is wrong, and the result is the exit code.
//
// Errors: passes on what the verbs' callbacks throw.
std::optional<int> parse(CLI::App& app, int argc, char** argv);

// Ends the program. Output that could not be written makes success a failure, with one line on
// stderr. Destroys nothing: threads of the service and of the binder library still run.
[[noreturn]] void end(int code);

}  // namespace commandline
