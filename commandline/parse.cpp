#include "commandline/parse.h"

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <map>

#include "commandline/generate.h"
#include "commandline/unexpected.h"
#include "commandline/version.h"
#include "sim/base/text.h"

namespace commandline {
namespace {

// The library's own message names unexpected words from the last to the first.
std::string messageOf(const CLI::App& app, const CLI::Error& error) {
    const bool extras = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    return extras ? unexpectedWords(app) : sim::brief(error.what());
}

std::string failureMessage(const CLI::App* app, const CLI::Error& error) {
    std::string verb = app->get_name();
    for (auto named = app->get_subcommands(); !named.empty();) {
        verb += " " + named.front()->get_name();
        named = named.front()->get_subcommands();
    }
    return app->get_name() + ": " + messageOf(*app, error) + "; see " + verb + " --help\n";
}

// Adds a hidden option that prints what the build installs besides the program.
void addGenerators(CLI::App& app) {
    using Print = void (*)(const CLI::App&, std::ostream&);
    static const std::map<std::string, Print> kTexts = {
        {"man", printManualPage}, {"bash", printBashCompletion}, {"zsh", printZshCompletion}};
    const auto print = [&app](const std::string& text) {
        kTexts.at(text)(app, std::cout);
        throw CLI::Success();
    };
    app.add_option_function<std::string>("--generate", print)
        ->check(CLI::IsMember(kTexts))
        ->group("");
}

}  // namespace

std::optional<int> parse(CLI::App& app, int argc, char** argv) {
    app.set_version_flag("--version", versionLine(app.get_name()), "Print the version and exit");
    addGenerators(app);
    app.failure_message(failureMessage);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsageError;
    }
    return std::nullopt;
}

void end(int code) {
    if ((fflush(stdout) != 0 || ferror(stdout)) && code == 0) {
        fprintf(stderr, "%s: the output could not be written\n", program_invocation_short_name);
        code = 1;
    }
    _exit(code);
}

}  // namespace commandline
