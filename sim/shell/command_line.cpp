#include "sim/shell/command_line.h"

#include <fnmatch.h>

#include <algorithm>
#include <memory>

#include "sim/base/root.h"

namespace sim {
namespace {

constexpr std::string_view kBinDirectory = "/system/bin/";

// Whether the character means something to a real shell that this one does not support.
bool isForbidden(unsigned char c) {
    return (c < 0x20 && c != '\t') || c == 0x7f ||
           std::string_view("|;&$`<\"'\\?[](){}!").find(static_cast<char>(c)) !=
               std::string_view::npos;
}

std::vector<std::string> split(std::string_view text) {
    std::vector<std::string> words;
    while (true) {
        size_t start = text.find_first_not_of(" \t");
        if (start == text.npos) return words;
        size_t end = text.find_first_of(" \t", start);
        words.emplace_back(text.substr(start, end - start));
        if (end == text.npos) return words;
        text.remove_prefix(end);
    }
}

bool hasStar(const std::string& word) {
    return word.find('*') != word.npos;
}

std::string wrongWord(const std::string& word) {
    if (word.find('>') != word.npos) return "\">\" is taken once, before the last word";
    if (word[0] == '~' || word[0] == '#') return "\"~\" and \"#\" are not taken";
    const size_t star = word.find('*');
    if (star != word.npos && word.find('/', star) != word.npos)
        return "\"*\" is taken in the last component only";
    return "";
}

std::vector<std::string> matches(const Root& root, const std::string& word) {
    const size_t slash = word.rfind('/');
    const std::string directory = slash == word.npos ? "" : word.substr(0, slash + 1);
    const std::string pattern = word.substr(directory.size());
    std::vector<std::string> found;
    std::unique_ptr<DIR, int (*)(DIR*)> entries(
        root.opendir(directory.empty() ? "/" : directory.c_str()), closedir);
    while (const dirent* entry = entries ? readdir(entries.get()) : nullptr) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (fnmatch(pattern.c_str(), name.c_str(), FNM_PERIOD | FNM_NOESCAPE) == 0)
            found.push_back(directory + name);
    }
    std::sort(found.begin(), found.end());
    if (found.empty()) found.push_back(word);
    return found;
}

}  // namespace

std::string CommandLine::parse(std::string_view text) {
    if (text.size() > kMaxBytes) return "is too long";
    auto forbidden = std::find_if(text.begin(), text.end(), isForbidden);
    if (forbidden != text.end()) {
        const bool printable = *forbidden > 0x20 && *forbidden < 0x7f;
        return printable ? std::string("holds ") + *forbidden : "holds a control character";
    }
    words = split(text);
    if (words.size() >= 2 && words[words.size() - 2] == ">") {
        outputPath = words.back();
        words.resize(words.size() - 2);
        if (hasStar(outputPath)) return "\"*\" is not taken after \">\"";
        if (std::string wrong = wrongWord(outputPath); !wrong.empty()) return wrong;
    }
    for (const std::string& word : words) {
        if (std::string wrong = wrongWord(word); !wrong.empty()) return wrong;
    }
    if (words.empty()) return "names no program";
    program = words.front();
    words.erase(words.begin());
    if (program.compare(0, kBinDirectory.size(), kBinDirectory) == 0)
        program.erase(0, kBinDirectory.size());
    return "";
}

void CommandLine::expand(const Root& root) {
    std::vector<std::string> expanded;
    for (std::string& word : words) {
        if (!hasStar(word)) {
            expanded.push_back(std::move(word));
            continue;
        }
        for (std::string& match : matches(root, word)) expanded.push_back(std::move(match));
    }
    words = std::move(expanded);
}

}  // namespace sim
