#pragma once

#include <ostream>

namespace CLI {
class App;
}

// Texts about a program made from the options and verbs that it parses, so that they say what its
// help says. The build installs them. Each is printed whole; the app has all its verbs.
namespace commandline {

// A manual page of section 1, in roff with the man macros.
void printManualPage(const CLI::App& app, std::ostream& out);

// A completion function for bash 4 or later.
void printBashCompletion(const CLI::App& app, std::ostream& out);

// A completion function for zsh, as a file that is found by its name.
void printZshCompletion(const CLI::App& app, std::ostream& out);

}  // namespace commandline
