#pragma once

namespace android {

// One turn of a loop that waits for another processor: some ten nanoseconds that leave the core's
// other thread, or its power, alone.
inline void pauseBriefly() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

}  // namespace android
