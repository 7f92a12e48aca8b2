#include "commandline/unexpected.h"

#include <CLI/CLI.hpp>

#include "commandline/suggestion.h"
#include "sim/base/text.h"

namespace commandline {
namespace {

std::vector<std::string> verbsOf(const CLI::App& app) {
    std::vector<std::string> verbs;
    for (const CLI::App* verb : app.get_subcommands({})) verbs.push_back(verb->get_name());
    return verbs;
}

std::vector<std::string> longOptionsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_group().empty()) continue;  // hidden
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
}

// The app and the verbs that were parsed, from the inside out.
std::vector<const CLI::App*> parsed(const CLI::App& app) {
    std::vector<const CLI::App*> found{&app};
    for (auto verbs = app.get_subcommands(); !verbs.empty();) {
        found.insert(found.begin(), verbs.front());
        verbs = verbs.front()->get_subcommands();
    }
    return found;
}

}  // namespace

std::string suggestionFor(const std::string& word, const CLI::App& app) {
    if (word.rfind("--", 0) != 0) return nearest(word, verbsOf(app));
    return nearest(word.substr(0, word.find('=')), longOptionsOf(app));
}

std::string unexpected(const std::string& words, const std::string& suggestion) {
    const std::string message = sim::brief("not expected: " + words);
    return suggestion.empty() ? message : message + " (did you mean " + suggestion + "?)";
}

std::string unexpectedWords(const CLI::App& app) {
    const std::vector<std::string> words = app.remaining(true);
    std::string suggestion;
    for (const CLI::App* verb : parsed(app)) {
        if (suggestion.empty()) suggestion = suggestionFor(words.front(), *verb);
    }
    return unexpected(CLI::detail::join(words, " "), suggestion);
}

}  // namespace commandline
