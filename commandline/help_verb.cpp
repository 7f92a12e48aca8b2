#include "commandline/help_verb.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "commandline/unexpected.h"

namespace commandline {
namespace {

void printHelp(const CLI::App& app, const std::vector<std::string>& verbs) {
    const CLI::App* found = &app;
    std::string parents;
    for (const std::string& verb : verbs) {
        const auto named = found->get_subcommands(
            [&verb](const CLI::App* candidate) { return candidate->check_name(verb); });
        if (named.empty()) {
            throw CLI::ParseError(unexpected(verb, suggestionFor(verb, *found)),
                                  CLI::ExitCodes::ExtrasError);
        }
        parents += found->get_name() + " ";
        found = named.front();
    }
    // CLI::App::help() would turn to the verb that was parsed, which is this one.
    std::cout << found->get_formatter()->make_help(found, parents + found->get_name(),
                                                   CLI::AppFormatMode::Normal);
}

}  // namespace

CLI::App* addHelpVerb(CLI::App& app) {
    auto verbs = std::make_shared<std::vector<std::string>>();
    CLI::App* help = app.add_subcommand(kHelpVerb, "Show the help of the program or of a verb");
    help->add_option("VERB", *verbs, "The verb, such as phone start");
    help->final_callback([&app, verbs] { printHelp(app, *verbs); });
    return help;
}

}  // namespace commandline
