#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

class Root;

// One command line, taken apart: a program, its words, and where its output goes.
struct CommandLine {
    static constexpr size_t kBytes = 16 * 1024;

    std::string program;             // without a leading "/system/bin/"
    std::vector<std::string> words;  // after the program; "*" expanded
    std::string outputPath;          // of "> path", or empty

    // Reads `text`: words separated by blanks, at most one "> path" at the end, "*" in the last
    // component of a path only. Returns what is wrong with it, or an empty text.
    std::string parse(std::string_view text);

    // Replaces each word holding "*" by the names in the tree that it stands for, sorted; one that
    // stands for none stays as it is. Names that start with "." are matched by a "." alone.
    void expand(const Root& root);
};

}  // namespace sim
