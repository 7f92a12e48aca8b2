#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace commandline {

// An option or a positional argument of a program or a verb, as its manual page and completion
// show it.
struct Argument {
    std::vector<std::string> names;    // "-h", "--help"; empty for a positional argument
    std::string value;                 // what stands for its value, such as "DIR"; "" for a flag
    std::string limits;                // what values it takes, such as "INT in [1 - 256]"
    std::vector<std::string> choices;  // all its values when they are few and known
    std::string initial;               // its value when it is not given
    std::string environment;           // the variable that gives its value, too
    std::string text;                  // what it does
    std::vector<std::string> needs, excludes;  // other options
    bool help = false;                         // prints help
    bool required = false;
    bool repeats = false;
    bool separated = false;  // one word has several values with "," between

    bool positional() const { return names.empty(); }
};

// The arguments of a program or a verb in the order of its help; hidden options are left out. An
// initial value that a variable changes is one user's alone, and is left out, too.
std::vector<Argument> argumentsOf(const CLI::App& app);

// The options that a verb takes besides its own: those of its parents, without their --help.
std::vector<Argument> inheritedBy(const CLI::App& verb);

// The program's name and the verbs that lead to this one, such as "pelto phone start".
std::string pathOf(const CLI::App& app);

}  // namespace commandline
