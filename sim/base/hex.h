#pragma once

#include <string>
#include <string_view>

namespace sim {

std::string hexOf(std::string_view bytes);

// Two digits a byte, blanks between bytes skipped. Throws std::runtime_error on anything else.
std::string bytesOfHex(std::string_view hex);

}  // namespace sim
