#pragma once

#include <string>

namespace commandline {

// The text as one word of a shell, in single quotes.
inline std::string shellWord(const std::string& text) {
    std::string word = "'";
    for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

// Of an argument's value, as its help calls it, the kinds that are files of the workstation.
constexpr char kFolderValue[] = "DIR";
constexpr char kFileValue[] = "FILE";

}  // namespace commandline
