#pragma once

#include <cstdint>

namespace KelvoFramework {

int stats_write(int32_t code, int32_t eventId, const char* event, const char* kind,
                int64_t wallMillis, int32_t result, int32_t count, const char* source);

}  // namespace KelvoFramework
