#pragma once

#include <utils/Mutex.h>

namespace android {

// Holds, for a scope, a lock that others hold for less time than falling asleep would cost: tries
// it a few times before it waits.
class SCOPED_CAPABILITY ShortLock {
  public:
    explicit ShortLock(Mutex& mutex) ACQUIRE(mutex) : mMutex(mutex) { take(mutex); }
    ~ShortLock() RELEASE() { mMutex.unlock(); }
    ShortLock(const ShortLock&) = delete;
    ShortLock& operator=(const ShortLock&) = delete;

    static void take(Mutex& mutex) ACQUIRE(mutex) {
        for (int i = 0; i < kTries; ++i) {
            if (mutex.tryLock() == 0) return;
            pause();
        }
        mutex.lock();
    }

  private:
    static constexpr int kTries = 40;

    static void pause() {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
        asm volatile("yield" ::: "memory");
#endif
    }

    Mutex& mMutex;
};

}  // namespace android
