#include "sim/base/hex.h"

#include <charconv>
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
            throw std::runtime_error("'" + std::string(digits) + "' is not a byte in hex");
        if (hex[0] != ' ') bytes += static_cast<char>(byte);
        hex.remove_prefix(hex[0] == ' ' ? 1 : 2);
    }
    return bytes;
}

}  // namespace sim
