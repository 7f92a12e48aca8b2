#pragma once

namespace CLI {
class App;
}

namespace commandline {

// The verb that addHelpVerb() adds.
constexpr char kHelpVerb[] = "help";

// Adds the verb "help VERB...", which prints what "VERB... --help" does. The app outlives it.
void addHelpVerb(CLI::App& app);

}  // namespace commandline
