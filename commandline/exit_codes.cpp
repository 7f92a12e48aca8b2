#include "commandline/exit_codes.h"

#include <CLI/CLI.hpp>

namespace commandline {

void listExitCodes(CLI::App& app, const std::map<int, std::string>& meanings) {
    std::string text = app.get_footer();
    if (!text.empty()) text += '\n';
    text += "Exit codes:\n";
    for (const auto& [code, meaning] : meanings)
        text += "  " + std::to_string(code) + "  " + meaning + '\n';
    app.footer(text);
}

}  // namespace commandline
