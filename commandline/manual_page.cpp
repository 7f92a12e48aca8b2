#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "commandline/argument.h"
#include "commandline/generate.h"
#include "commandline/version.h"

namespace commandline {
namespace {

constexpr const char* kPrograms[] = {"pelto", "pelto-capture", "peltoserviced"};

// The text as roff shows it unchanged. "\&" keeps a dot at the start of a line from being a
// request.
std::string plain(const std::string& text) {
    std::string roff;
    for (const char c : text) {
        switch (c) {
            case '\\':
                roff += "\\e";
                break;
            case '-':
                roff += "\\-";
                break;
            case '\'':
                roff += "\\(aq";
                break;
            case '"':
                roff += "\\(dq";
                break;
            case '.':
                roff += roff.empty() ? "\\&." : ".";
                break;
            default:
                roff += c;
        }
    }
    return roff;
}

std::string bold(const std::string& text) {
    return "\\fB" + plain(text) + "\\fR";
}
std::string italic(const std::string& text) {
    return "\\fI" + plain(text) + "\\fR";
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), toupper);
    return text;
}

// The first letter small and no dot at the end, as behind the name of a page.
std::string clause(std::string text) {
    if (!text.empty()) text[0] = static_cast<char>(tolower(text[0]));
    if (!text.empty() && text.back() == '.') text.pop_back();
    return text;
}

std::string form(const Argument& argument) {
    if (argument.positional()) return italic(argument.value) + (argument.repeats ? "..." : "");
    const std::string& name = argument.names.back();
    return bold(name) + (argument.value.empty() ? "" : "\\ " + italic(argument.value));
}

std::string synopsis(const CLI::App& app) {
    std::string text = bold(pathOf(app));
    for (const Argument& argument : argumentsOf(app)) {
        if (argument.help) continue;
        text += argument.required ? " " + form(argument) : " [" + form(argument) + "]";
    }
    return text + (app.get_subcommands({}).empty() ? "" : " " + italic("VERB") + " ...");
}

void printFact(std::ostream& out, const char* label, const std::vector<std::string>& words) {
    if (words.empty()) return;
    out << ".br\n" << label << ": " << plain(CLI::detail::join(words, ", ")) << "\n";
}

void printArgument(const Argument& argument, std::ostream& out) {
    out << ".TP\n";
    for (const std::string& name : argument.names)
        out << bold(name) << (name == argument.names.back() ? "" : ", ");
    if (!argument.names.empty() && !argument.value.empty()) out << "\\ ";
    out << (argument.value.empty() ? "" : italic(argument.value)) << "\n";
    out << plain(argument.text) << "\n";
    if (argument.choices.empty()) {
        if (!argument.limits.empty()) printFact(out, "Takes", {argument.limits});
    } else {
        printFact(out, "Takes", argument.choices);
    }
    if (!argument.initial.empty()) printFact(out, "Default", {argument.initial});
    printFact(out, "Needs", argument.needs);
    printFact(out, "Excludes", argument.excludes);
}

void printArguments(const CLI::App& app, std::ostream& out) {
    for (const Argument& argument : argumentsOf(app)) {
        if (!argument.help || app.get_parent() == nullptr) printArgument(argument, out);
    }
}

// A part of a footer: a heading that ends in ":", lines of two columns below it, or a plain line.
struct FooterLine {
    std::string heading, term, text;
};

std::vector<FooterLine> footerOf(const CLI::App& app) {
    std::vector<FooterLine> lines;
    std::istringstream footer(app.get_footer());
    for (std::string line; std::getline(footer, line);) {
        if (line.rfind("  ", 0) == 0) {
            const size_t gap = std::min(line.find("  ", 2), line.size());
            const size_t text = std::min(line.find_first_not_of(' ', gap), line.size());
            lines.push_back({"", line.substr(2, gap - 2), line.substr(text)});
        } else if (!line.empty() && line.back() == ':') {
            lines.push_back({line.substr(0, line.size() - 1), "", ""});
        } else if (!line.empty()) {
            lines.push_back({"", "", line});
        }
    }
    return lines;
}

void printFooter(const CLI::App& app, std::ostream& out) {
    for (const FooterLine& line : footerOf(app)) {
        if (!line.term.empty()) {
            out << ".TP\n" << bold(line.term) << "\n" << plain(line.text) << "\n";
            out << ".PD 0\n";  // no space before the next one
        } else if (line.heading.empty()) {
            out << ".PD\n.PP\n" << plain(line.text) << "\n";
        } else if (app.get_parent() !=
                   nullptr) {  // the page has a heading of its own for the program
            out << ".PD\n.PP\n" << plain(line.heading) << ":\n";
        }
    }
    out << ".PD\n";
}

void printVerbs(const CLI::App& app, std::ostream& out) {
    for (const CLI::App* verb : app.get_subcommands({})) {
        out << ".SS " << plain(pathOf(*verb)) << "\n" << synopsis(*verb) << "\n.PP\n";
        out << plain(verb->get_description()) << ".\n";
        printArguments(*verb, out);
        printFooter(*verb, out);
        printVerbs(*verb, out);
    }
}

void printEnvironment(const CLI::App& app, std::ostream& out) {
    bool any = false;
    for (const Argument& argument : argumentsOf(app)) {
        if (argument.environment.empty()) continue;
        if (!any) out << ".SH ENVIRONMENT\n";
        any = true;
        out << ".TP\n" << bold(argument.environment) << "\n";
        out << "The value of " << form(argument) << " when that is not given.\n";
    }
}

void printOthers(const CLI::App& app, std::ostream& out) {
    out << ".SH SEE ALSO\n";
    const char* separator = "";
    for (const std::string program : kPrograms) {
        if (program == app.get_name()) continue;
        out << separator << bold(program) << "(1)";
        separator = ", ";
    }
    out << "\n";
}

}  // namespace

void printManualPage(const CLI::App& app, std::ostream& out) {
    const std::string& name = app.get_name();
    out << ".TH " << plain(upper(name)) << " 1 \"\" \"" << plain(name + " " + kVersion) << "\"\n";
    out << ".SH NAME\n" << plain(name) << " \\- " << plain(clause(app.get_description())) << "\n";
    out << ".SH SYNOPSIS\n" << synopsis(app) << "\n";
    out << ".SH DESCRIPTION\n" << plain(app.get_description()) << "\n";
    out << ".SH OPTIONS\n";
    printArguments(app, out);
    if (!app.get_subcommands({}).empty()) out << ".SH COMMANDS\n";
    printVerbs(app, out);
    printEnvironment(app, out);
    out << ".SH EXIT STATUS\n";
    printFooter(app, out);
    printOthers(app, out);
}

}  // namespace commandline
