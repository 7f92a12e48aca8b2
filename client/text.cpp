#include "client/text.h"

namespace pelto {
namespace {

std::string escaped(char c) {
    static constexpr char kDigits[] = "0123456789abcdef";
    switch (c) {
        case '\\':
            return "\\\\";
        case '\n':
            return "\\n";
        case '\t':
            return "\\t";
        default:
            return {'\\', 'x', kDigits[(c >> 4) & 15], kDigits[c & 15]};
    }
}

}  // namespace

std::string jsonLine(const nlohmann::ordered_json& object) {
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string printable(const std::string& text) {
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < ' ' || byte == 0x7f || c == '\\') {
            line += escaped(c);
        } else {
            line += c;
        }
    }
    return line;
}

}  // namespace pelto
