// Takes event texts and log information apart and compares the result with a simpler parser's.
#include <limits.h>

#include <map>

#include "event/PeltoEvent.h"
#include "fuzz/fuzz_phone.h"
#include "logcapture/log_information.h"

using namespace android;

namespace {

// The non-empty pieces between separators.
std::vector<std::string> piecesOf(const std::string& text, char separator) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c != separator) {
            pieces.back() += c;
        } else if (!pieces.back().empty()) {
            pieces.emplace_back();
        }
    }
    if (pieces.back().empty()) pieces.pop_back();
    return pieces;
}

// The number at the start of a text, kept within 32 bits.
int numberOf(const std::string& text) {
    size_t at = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    const bool negative = text[at] == '-';
    if (negative || text[at] == '+') ++at;
    double number = 0;
    for (; text[at] >= '0' && text[at] <= '9'; ++at) number = number * 10 + (text[at] - '0');
    return static_cast<int>(negative ? std::max(-number, double{INT_MIN})
                                     : std::min(number, double{INT_MAX}));
}

std::map<std::string, std::string> extrasOf(const std::string& info) {
    std::map<std::string, std::string> extras;
    for (const std::string& pair : piecesOf(info, ',')) {
        const auto parts = piecesOf(pair, ':');
        if (parts.size() > 1) extras[parts[0]] = parts[1];
    }
    return extras;
}

void checkEvent(const std::string& text) {
    auto parts = piecesOf(text, '$');
    parts.resize(std::max<size_t>(parts.size(), 2));
    const sp<PeltoEvent> event = new PeltoEvent(text);
    require(event->getEventType() == parts[0], "the type");
    require(event->getEventInfo() == parts[1], "the information");
    const auto extras = extrasOf(parts[1]);
    for (const auto& [key, value] : extras) {
        require(event->getStringExtra(key) == value, "the extra " + key);
        require(event->getIntFromStringExtra(key, 77) == numberOf(value), "its number");
    }
    for (const std::string& key : {std::string(), parts[0], parts[1]}) {
        if (extras.count(key) != 0) continue;
        require(event->getStringExtra(key).empty() && event->getIntFromStringExtra(key, 77) == 77,
                "there is no such extra");
    }
}

void checkInformation(const std::string& text) {
    const auto pieces = piecesOf(text, ',');
    LogInformation fields;
    fields.fill(String8("kept"));
    const bool split = splitLogInformation(String8(text.c_str(), text.size()), fields);
    require(split == (pieces.size() >= kLogFields), "five fields are enough");
    for (size_t i = 0; i < kLogFields; ++i)
        require(fields[i].c_str() == (split ? pieces[i] : "kept"), "each field is a piece");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzPhone();  // for the lines about malformed events
    // The parsers read up to a NUL.
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    checkEvent(text);
    checkInformation(text);
    return 0;
}
