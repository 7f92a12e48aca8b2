#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

// The bytes in hex, two lower-case digits each.
std::string hexOf(std::string_view bytes);

// The bytes of hex digits; skips blanks between bytes. Throws std::invalid_argument on all else.
std::string bytesOfHex(std::string_view hex);

// The decimal number that makes up all of `text`; nothing when it is not from `min` to `max`.
std::optional<int64_t> numberIn(std::string_view text, int64_t min, int64_t max);

// The text with "?" in place of each control character.
std::string printable(std::string text);

// The text within a message of one line: control characters as "?", cut when it is long.
std::string brief(std::string text);

// Seconds since the epoch as local time in strftime()'s format; "?" when they are no such time.
std::string localTime(const char* format, int64_t seconds);

}  // namespace sim
