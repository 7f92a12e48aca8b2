#pragma once

#include <utils/Mutex.h>

#include "looper/pause.h"
#include "looper/thread_annotations.h"

namespace android {

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
