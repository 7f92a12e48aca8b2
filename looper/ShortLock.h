#pragma once

#include <utils/Mutex.h>

#include "looper/thread_annotations.h"

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

// Holds a lock for a scope. For locks that are held for less time than a thread needs to sleep and
// wake: spins for about that long before it waits.
class SCOPED_CAPABILITY ShortLock {
  public:
    explicit ShortLock(Mutex& mutex) ACQUIRE(mutex) : mMutex(mutex) { take(mutex); }
    ~ShortLock() RELEASE() { mMutex.unlock(); }
    ShortLock(const ShortLock&) = delete;
    ShortLock& operator=(const ShortLock&) = delete;

    static void take(Mutex& mutex) ACQUIRE(mutex) {
        for (int i = 0; i < kMaxTries; ++i) {
            if (mutex.tryLock() == 0) return;
            pauseBriefly();
        }
        mutex.lock();
    }

  private:
    static constexpr int kMaxTries = 300;

    Mutex& mMutex;
};

}  // namespace android
