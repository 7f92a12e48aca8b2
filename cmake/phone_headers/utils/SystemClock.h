#pragma once

#include <cstdint>

namespace android {

int64_t elapsedRealtime();

}  // namespace android
