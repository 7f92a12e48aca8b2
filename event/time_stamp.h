#pragma once

#include <cstdint>

namespace android {

constexpr int32_t kMinTimeStampBytes = 64;  // the least size of a buffer for a time stamp

// Writes `prefix` and the local wall-clock time as "%04d-%02d-%02d_%02d-%02d-%02d". Returns 0.
// Returns -1 with an error line under `tag`, the buffer unchanged, when the buffer is null or too
// small or the time cannot be read.
int32_t writeTimeStamp(const char* tag, const char* prefix, char* buffer, int32_t size);

}  // namespace android
