#include <CLI/CLI.hpp>

#include "commandline/argument.h"
#include "commandline/generate.h"
#include "commandline/help_verb.h"
#include "commandline/shell_words.h"

namespace commandline {
namespace {

std::string functionOf(const CLI::App& app) {
    return "_" + CLI::detail::find_and_replace(pathOf(app), " ", "_");
}

// The text within an entry of _arguments or _describe, where these characters have a meaning.
std::string escaped(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        if (std::string(":[]\\").find(c) != std::string::npos) safe += '\\';
        safe += c;
    }
    return safe;
}

std::string actionOf(const Argument& argument) {
    const std::string choices = CLI::detail::join(argument.choices, " ");
    if (argument.separated && !choices.empty())
        return "_values -s , " + escaped(argument.value) + " " + choices;
    if (!choices.empty()) return "(" + choices + ")";
    if (argument.value == kFolderValue) return "_files -/";
    return argument.value == kFileValue ? "_files" : " ";
}

void printOption(const Argument& argument, std::ostream& out) {
    for (const std::string& name : argument.names) {
        const bool whole = name.rfind("--", 0) == 0;
        std::string entry = "(" + CLI::detail::join(argument.names, " ") + ")" + name;
        if (!argument.value.empty()) entry += whole ? "=" : "+";
        entry += "[" + escaped(argument.text) + "]";
        if (!argument.value.empty())
            entry += ":" + escaped(argument.value) + ":" + actionOf(argument);
        out << " \\\n        " << shellWord(entry);
    }
}

void printPositionals(const CLI::App& app, std::ostream& out) {
    int place = 0;
    for (const Argument& argument : argumentsOf(app)) {
        if (!argument.positional()) continue;
        const std::string which = argument.repeats ? "*" : std::to_string(++place);
        const char* const colon = argument.required || argument.repeats ? ":" : "::";
        out << " \\\n        "
            << shellWord(which + colon + escaped(argument.value) + ":" + actionOf(argument));
    }
}

void printVerbList(const CLI::App& app, std::ostream& out) {
    out << "\n" << functionOf(app) << "_verbs() {\n    local -a verbs=(\n";
    for (const CLI::App* verb : app.get_subcommands({}))
        out << "        " << shellWord(verb->get_name() + ":" + escaped(verb->get_description()))
            << "\n";
    out << "    )\n    _describe verb verbs\n}\n";
}

// The help of a verb is asked for by the words that lead to it.
void printVerbCases(const CLI::App& app, std::ostream& out) {
    out << "    [[ $state == verb ]] || return\n    case $line[1] in\n";
    for (const CLI::App* verb : app.get_subcommands({})) {
        const bool help = verb->get_name() == kHelpVerb;
        out << "        " << verb->get_name() << ") " << functionOf(help ? app : *verb) << " ;;\n";
    }
    out << "    esac\n";
}

void printFunction(const CLI::App& app, std::ostream& out) {
    const bool hasVerbs = !app.get_subcommands({}).empty();
    out << "\n" << functionOf(app) << "() {\n";
    out << "    local context curcontext=\"$curcontext\" state state_descr line\n"
        << "    typeset -A opt_args\n"
        << "    _arguments -C";
    for (const Argument& argument : argumentsOf(app)) printOption(argument, out);
    for (const Argument& argument : inheritedBy(app)) printOption(argument, out);
    printPositionals(app, out);
    if (hasVerbs) {
        out << " \\\n        '1:verb:" << functionOf(app) << "_verbs'";
        out << " \\\n        '*::argument:->verb'\n";
        printVerbCases(app, out);
    }
    out << (hasVerbs ? "}\n" : "\n}\n");
    if (hasVerbs) printVerbList(app, out);
    for (const CLI::App* verb : app.get_subcommands({})) printFunction(*verb, out);
}

}  // namespace

void printZshCompletion(const CLI::App& app, std::ostream& out) {
    out << "#compdef " << app.get_name() << "\n";
    printFunction(app, out);
    out << "\n" << functionOf(app) << " \"$@\"\n";
}

}  // namespace commandline
