// Takes lines of the log apart and filters them, and compares the result with a simpler parser's.
// An input is logcat's arguments in the first line, then lines of the log.
#include <map>
#include <sstream>

#include "fuzz/fuzz_input.h"
#include "fuzz/fuzz_phone.h"
#include "sim/userspace/logcat.h"

namespace {

constexpr char kLetters[] = "??vdiwefs";  // the index is the priority

// The priority of a letter in either case; 0 for another character.
int priorityOf(char letter) {
    const char lower = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
    for (int priority = 2; priority <= 8; ++priority) {
        if (kLetters[priority] == lower) return priority;
    }
    return 0;
}

struct Parts {
    bool isLine = false;
    int priority = 0;
    std::string tag, message;
};

Parts partsOf(const std::string& line) {
    Parts parts;
    size_t at = 0;
    std::string letter;
    for (int field = 0; field < 5; ++field) {
        at = line.find_first_not_of(' ', at);
        if (at == line.npos) return parts;
        const size_t end = std::min(line.find(' ', at), line.size());
        letter = line.substr(at, end - at);
        at = end;
    }
    const size_t colon = line.find(": ", at);
    if (letter.size() != 1 || colon == line.npos) return parts;
    parts.isLine = true;
    parts.priority = priorityOf(letter[0]);
    // The tag is padded behind one blank.
    parts.tag = line.substr(std::min(at + 1, colon), colon - std::min(at + 1, colon));
    while (!parts.tag.empty() && parts.tag.back() == ' ') parts.tag.pop_back();
    parts.message = line.substr(colon + 2);
    return parts;
}

void checkParse(const std::string& text, const Parts& expected) {
    sim::LogLine line;
    require(line.parse(text) == expected.isLine, "it is a line of the log or not");
    if (!expected.isLine) return;
    require(line.priority == expected.priority, "the priority");
    require(line.tag == expected.tag, "the tag");
    require(line.message == expected.message, "the message");
}

// The filters among arguments that were taken: the least priority of each tag, "*" for the others.
std::map<std::string, int> filtersOf(const std::vector<std::string>& words) {
    std::map<std::string, int> filters{{"*", sim::kVerbose}};
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word == "-s") filters["*"] = sim::kSilent;
        if (word == "-t" || word == "-v") ++i;
        if (word[0] == '-') continue;
        const size_t colon = word.rfind(':');
        const std::string tag = word.substr(0, colon);
        filters[tag] = colon != word.npos ? priorityOf(word.back())
                       : tag == "*"       ? sim::kDebug
                                          : sim::kVerbose;
        require(filters[tag] != 0, "a filter has a priority");
    }
    return filters;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    std::istringstream blanks{std::string(input.until('\n'))};
    std::vector<std::string> words;
    for (std::string word; std::getline(blanks, word, ' ');) {
        if (!word.empty()) words.push_back(word);
    }
    sim::LogcatOptions options;
    const bool taken = options.parse(words).empty();
    const auto filters = taken ? filtersOf(words) : std::map<std::string, int>{};
    while (!input.empty()) {
        const std::string line(input.until('\n'));
        const Parts parts = partsOf(line);
        checkParse(line, parts);
        if (!taken) continue;
        const auto named = filters.find(parts.tag == "*" ? "" : parts.tag);
        const int least = named != filters.end() ? named->second : filters.at("*");
        require(options.passes(line) == (parts.isLine && parts.priority >= least), "it passes");
    }
    return 0;
}
