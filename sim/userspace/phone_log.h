#pragma once

#include <string_view>

namespace sim {

// The field's priority numbers.
enum Priority { kVerbose = 2, kDebug, kInfo, kWarn, kError, kFatal, kSilent };

// One line of a part of the phone itself ("init", "sh", ...) in the open phone's log.
void logAs(std::string_view part, Priority priority, std::string_view text);

}  // namespace sim
