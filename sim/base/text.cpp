#include "sim/base/text.h"

#include <time.h>

#include <algorithm>
#include <charconv>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace sim {

std::string hexOf(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const char byte : bytes) {
        hex += kDigits[static_cast<unsigned char>(byte) >> 4];
        hex += kDigits[static_cast<unsigned char>(byte) & 15];
    }
    return hex;
}

std::string bytesOfHex(std::string_view hex) {
    std::string bytes;
    while (!hex.empty()) {
        const std::string_view digits = hex.substr(0, 2);
        unsigned char byte = 0;
        const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        if (hex[0] != ' ' && (digits.size() < 2 || read.ptr != digits.data() + 2))
            throw std::invalid_argument("'" + std::string(digits) + "' is not a byte in hex");
        if (hex[0] != ' ') bytes += static_cast<char>(byte);
        hex.remove_prefix(hex[0] == ' ' ? 1 : 2);
    }
    return bytes;
}

std::optional<int64_t> numberIn(std::string_view text, int64_t min, int64_t max) {
    int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end || number < min || number > max)
        return std::nullopt;
    return number;
}

std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return text;
}

std::string brief(std::string text) {
    constexpr size_t kMaxBytes = 200;
    if (text.size() > kMaxBytes) text.replace(kMaxBytes, text.npos, "...");
    return printable(std::move(text));
}

std::string localTime(const char* format, int64_t seconds) {
    const time_t time = static_cast<time_t>(seconds);
    struct tm local {};
    if (localtime_r(&time, &local) == nullptr) return "?";
    std::ostringstream text;
    text << std::put_time(&local, format);
    return text.str();
}

}  // namespace sim
