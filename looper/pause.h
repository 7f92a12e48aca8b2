#pragma once

namespace android {

// One turn of a spin loop, some ten nanoseconds: leaves the core to its other hardware thread and
// saves power.
inline void pauseBriefly() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

}  // namespace android
