#pragma once

#include <pthread.h>
#include <utils/thread_annotations.h>

namespace android {

class Condition;

// A non-recursive lock. Autolock holds it for a scope.
class CAPABILITY("mutex") Mutex {
  public:
    Mutex() = default;
    ~Mutex() { pthread_mutex_destroy(&mMutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() ACQUIRE() { pthread_mutex_lock(&mMutex); }
    void unlock() RELEASE() { pthread_mutex_unlock(&mMutex); }
    // 0 when the lock was taken.
    int tryLock() TRY_ACQUIRE(0) { return -pthread_mutex_trylock(&mMutex); }

    class SCOPED_CAPABILITY Autolock {
      public:
        explicit Autolock(Mutex& mutex) ACQUIRE(mutex) : mLock(mutex) { mLock.lock(); }
        ~Autolock() RELEASE() { mLock.unlock(); }
        Autolock(const Autolock&) = delete;
        Autolock& operator=(const Autolock&) = delete;

      private:
        Mutex& mLock;
    };

  private:
    friend class Condition;
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace android
