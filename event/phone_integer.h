#pragma once

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace android {

// Reads an integer as atoi() does where long has 32 bits: skips blanks, takes a sign and digits up
// to the first other character, 0 without digits. A number that does not fit becomes INT_MIN or
// INT_MAX.
inline int phoneAtoi(const char* text) {
    const long long value = strtoll(text, nullptr, 10);
    return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

}  // namespace android
