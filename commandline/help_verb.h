#pragma once

namespace CLI {
class App;
}

namespace commandline {

// The verb that addHelpVerb() adds.
constexpr char kHelpVerb[] = "help";

// Adds and returns the verb "help VERB...", which prints what "VERB... --help" does.
CLI::App* addHelpVerb(CLI::App& app);

}  // namespace commandline
