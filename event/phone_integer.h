#pragma once

namespace android {

// Reads an integer as atoi() does where long has 32 bits: blanks skipped, a sign, digits up to the
// first other character, 0 without digits, and what does not fit becomes the nearest end.
int phoneAtoi(const char* text);

}  // namespace android
