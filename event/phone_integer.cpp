#include "event/phone_integer.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace android {

int phoneAtoi(const char* text) {
    const long long value = strtoll(text, nullptr, 10);
    return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

}  // namespace android
