#include <CLI/CLI.hpp>
#include <algorithm>

#include "commandline/argument.h"
#include "commandline/generate.h"
#include "commandline/help_verb.h"
#include "commandline/shell_words.h"

namespace commandline {
namespace {

// The start of every file; NAME stands for the program's name, FUNCTION for that of a function.
// bash splits --option=value at the "=", so that "=" is a word.
constexpr char kFunction[] = R"(# Completion of NAME for bash 4 or later.

FUNCTION() {
    local current=${COMP_WORDS[COMP_CWORD]} verb=NAME option="" last="" place=1 i word
    local verbs options takers kind choices
    FUNCTION_verb
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ -n $option ]]; then
            [[ $word == = ]] || option=
        elif [[ -n $last ]]; then
            ((place++))
        elif [[ $word == -- ]]; then
            last=1
        elif [[ $word == -* ]]; then
            [[ " $takers " != *" $word "* ]] || option=$word
        elif [[ " $verbs " == *" $word "* ]]; then
            [[ $word == HELP ]] || verb+=" $word"
            FUNCTION_verb
        else
            ((place++))
        fi
    done
    [[ -z $option || $current != = ]] || current=
    COMPREPLY=()
    if [[ -z $option && -z $last && $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    elif [[ -z $option && -n $verbs ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$verbs" -- "$current")
    else
        FUNCTION_value "$verb ${option:-$place}"
        "FUNCTION_$kind"
    fi
}

FUNCTION_none() { :; }

FUNCTION_choice() {
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
}

# One of the choices behind the last ",".
FUNCTION_list() {
    local before=${current%"${current##*,}"}
    mapfile -t COMPREPLY < <(compgen -P "$before" -W "$choices" -- "${current##*,}")
    compopt -o nospace 2>/dev/null
}

FUNCTION_folder() {
    mapfile -t COMPREPLY < <(compgen -d -- "$current")
    compopt -o filenames 2>/dev/null
}

FUNCTION_file() {
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    compopt -o filenames 2>/dev/null
}
)";

std::string kindOf(const Argument& argument) {
    if (!argument.choices.empty()) return argument.separated ? "list" : "choice";
    if (argument.value == kFolderValue) return "folder";
    return argument.value == kFileValue ? "file" : "";
}

std::string joined(const std::vector<std::string>& words) {
    return CLI::detail::join(words, " ");
}

void addNames(const Argument& argument, std::vector<std::string>& all,
              std::vector<std::string>& takers) {
    all.insert(all.end(), argument.names.begin(), argument.names.end());
    if (!argument.value.empty())
        takers.insert(takers.end(), argument.names.begin(), argument.names.end());
}

// A case of the function that says what may follow a verb.
void printVerb(const CLI::App& app, std::ostream& out) {
    std::vector<std::string> verbs, options, takers;
    for (const CLI::App* verb : app.get_subcommands({})) verbs.push_back(verb->get_name());
    for (const Argument& argument : argumentsOf(app)) addNames(argument, options, takers);
    for (const Argument& argument : inheritedBy(app)) addNames(argument, options, takers);
    out << "    " << shellWord(pathOf(app)) << ")\n";
    out << "        verbs=" << shellWord(joined(verbs)) << "\n";
    out << "        options=" << shellWord(joined(options)) << "\n";
    out << "        takers=" << shellWord(joined(takers)) << "\n        ;;\n";
    for (const CLI::App* verb : app.get_subcommands({})) printVerb(*verb, out);
}

// Cases of the function that says what an argument takes: by the option's name or by the place
// among the positional ones. Those of verbs come first, as an option of their parent may have the
// same name.
void printValues(const CLI::App& app, std::ostream& out) {
    for (const CLI::App* verb : app.get_subcommands({})) printValues(*verb, out);
    int place = 0;
    const bool inherited = !app.get_subcommands({}).empty();
    for (const Argument& argument : argumentsOf(app)) {
        if (argument.positional()) ++place;
        const std::string kind = kindOf(argument);
        if (kind.empty()) continue;
        const auto printCase = [&](const std::string& word, const char* between) {
            out << "    " << shellWord(pathOf(app)) << between << shellWord(" " + word)
                << ") kind=" << kind;
            out << " choices=" << shellWord(joined(argument.choices)) << " ;;\n";
        };
        if (argument.positional()) printCase(std::to_string(place), "");
        for (const std::string& name : argument.names) printCase(name, inherited ? "*" : "");
    }
}

}  // namespace

void printBashCompletion(const CLI::App& app, std::ostream& out) {
    const auto replace = CLI::detail::find_and_replace;
    const std::string function = "_" + replace(app.get_name(), "-", "_");
    std::string text = replace(kFunction, "FUNCTION", function);
    text = replace(replace(text, "NAME", app.get_name()), "HELP", kHelpVerb);
    out << text << "\n# What may follow the verb.\n"
        << function << "_verb() {\n    case $verb in\n";
    printVerb(app, out);
    out << "    esac\n}\n\n# What the argument takes.\n" << function << "_value() {\n";
    out << "    kind=none\n    case $1 in\n";
    printValues(app, out);
    out << "    esac\n}\n\ncomplete -F " << function << " " << app.get_name() << "\n";
}

}  // namespace commandline
