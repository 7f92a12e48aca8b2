#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

// Two lower-case digits a byte.
std::string hexOf(std::string_view bytes);

// Two digits a byte, blanks between bytes skipped. Throws std::runtime_error on anything else.
std::string bytesOfHex(std::string_view hex);

// The decimal number that makes up all of `text`; nothing when it is not from `min` to `max`.
std::optional<int64_t> numberIn(std::string_view text, int64_t min, int64_t max);

// The text with "?" in place of each control character.
std::string printable(std::string text);

// A time in seconds since the epoch, as local time in strftime()'s format; "?" when it has none.
std::string localTime(const char* format, int64_t seconds);

}  // namespace sim
