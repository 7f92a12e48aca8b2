#pragma once

#include <cstdint>

namespace android {

constexpr int32_t kTimeStampBytes = 64;  // what the buffer of a time stamp must have

// Writes the local wall-clock time as "%04d-%02d-%02d_%02d-%02d-%02d" behind `prefix`. Returns 0,
// or -1 and an error line under `tag`, the buffer untouched, when it is null or too small or when
// there is no time.
int32_t writeTimeStamp(const char* tag, const char* prefix, char* buffer, int32_t size);

}  // namespace android
