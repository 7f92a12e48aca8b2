#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

class Root;

// One command line: a program, its words, and the file for its output.
struct CommandLine {
    static constexpr size_t kMaxBytes = 16 * 1024;

    std::string program;             // without a leading "/system/bin/"
    std::vector<std::string> words;  // after the program; "*" expanded
    std::string outputPath;          // of "> path", or empty

    // Reads `text`: words separated by blanks, at most one "> path" at the end, "*" in the last
    // component of a path only. Returns what is wrong with it, or an empty text.
    std::string parse(std::string_view text);

    // Replaces each word with a "*" by the names in the tree that it matches, sorted; a word
    // without a match is kept. A leading "." is matched by a "." alone.
    void expand(const Root& root);
};

}  // namespace sim
