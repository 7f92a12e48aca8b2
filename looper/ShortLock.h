#pragma once

#include <utils/Mutex.h>

#include "looper/pause.h"
#include "looper/thread_annotations.h"

namespace android {

// Holds, for a scope, a lock that others hold for less time than falling asleep would cost: tries
// it for about as long as that takes before it waits.
class SCOPED_CAPABILITY ShortLock {
  public:
    explicit ShortLock(Mutex& mutex) ACQUIRE(mutex) : mMutex(mutex) { take(mutex); }
    ~ShortLock() RELEASE() { mMutex.unlock(); }
    ShortLock(const ShortLock&) = delete;
    ShortLock& operator=(const ShortLock&) = delete;

    static void take(Mutex& mutex) ACQUIRE(mutex) {
        for (int i = 0; i < kTries; ++i) {
            if (mutex.tryLock() == 0) return;
            pauseBriefly();
        }
        mutex.lock();
    }

  private:
    static constexpr int kTries = 300;

    Mutex& mMutex;
};

}  // namespace android
