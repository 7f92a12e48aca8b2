#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace pelto {

// The object on one line, its keys in the order given; bytes that are no UTF-8 become U+FFFD.
std::string jsonLine(const nlohmann::ordered_json& object);

// The text on one line: control characters and backslashes as \n, \t, \\ or \xNN.
std::string printable(const std::string& text);

}  // namespace pelto
