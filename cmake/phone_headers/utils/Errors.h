#pragma once

#include <cstdint>

namespace android {

typedef int32_t status_t;

enum { NO_INIT = -19 };

}  // namespace android
