#include "commandline/argument.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace commandline {
namespace {

std::vector<std::string> namesOf(const std::set<CLI::Option*>& options) {
    std::vector<std::string> names;
    for (const CLI::Option* option : options) names.push_back(option->get_name());
    return names;
}

// The library describes a set of values as "{one,other}".
std::vector<std::string> choicesIn(const std::string& limits) {
    if (limits.empty() || limits.front() != '{' || limits.back() != '}') return {};
    return CLI::detail::split(limits.substr(1, limits.size() - 2), ',');
}

void addValue(Argument& argument, const CLI::Option& option) {
    // The type and behind it the limits, such as "N:INT in [1 - 256]".
    const std::string type = option.get_type_name();
    const size_t colon = std::min(type.find(':'), type.size());
    argument.value = argument.positional() ? option.get_name(true) : type.substr(0, colon);
    argument.limits = type.substr(std::min(colon + 1, type.size()));
    argument.choices = choicesIn(argument.limits);
    if (argument.environment.empty()) argument.initial = option.get_default_str();
    argument.repeats = option.get_expected_max() == CLI::detail::expected_max_vector_size;
    argument.separated = option.get_delimiter() == ',';
}

Argument argumentOf(const CLI::Option& option) {
    Argument argument;
    for (const std::string& name : option.get_snames()) argument.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) argument.names.push_back("--" + name);
    argument.environment = option.get_envname();
    argument.text = option.get_description();
    argument.needs = namesOf(option.get_needs());
    argument.excludes = namesOf(option.get_excludes());
    argument.required = option.get_required();
    if (option.get_type_size() != 0) addValue(argument, option);
    return argument;
}

}  // namespace

std::vector<Argument> argumentsOf(const CLI::App& app) {
    std::vector<Argument> arguments;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_group().empty()) continue;
        arguments.push_back(argumentOf(*option));
        arguments.back().help = option == app.get_help_ptr();
    }
    return arguments;
}

std::vector<Argument> inheritedBy(const CLI::App& verb) {
    std::vector<Argument> inherited;
    for (auto parent = verb.get_parent(); parent != nullptr; parent = parent->get_parent()) {
        for (const Argument& argument : argumentsOf(*parent)) {
            if (!argument.positional() && !argument.help) inherited.push_back(argument);
        }
    }
    return inherited;
}

std::string pathOf(const CLI::App& app) {
    const CLI::App* parent = app.get_parent();
    return (parent != nullptr ? pathOf(*parent) + " " : "") + app.get_name();
}

}  // namespace commandline
