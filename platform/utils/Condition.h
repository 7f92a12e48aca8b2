#pragma once

#include <pthread.h>
#include <time.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>

namespace android {

// A condition variable on the monotonic clock. wait() may return early: callers that rely on their
// condition test it in a loop.
class Condition {
  public:
    Condition() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&mCond, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~Condition() { pthread_cond_destroy(&mCond); }
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    void wait(Mutex& mutex) REQUIRES(mutex) { pthread_cond_wait(&mCond, &mutex.mMutex); }
    // OK when notified or woken early, TIMED_OUT after `nanos` nanoseconds.
    status_t waitRelative(Mutex& mutex, int64_t nanos) REQUIRES(mutex);
    void signal() { pthread_cond_signal(&mCond); }
    void broadcast() { pthread_cond_broadcast(&mCond); }

  private:
    pthread_cond_t mCond;
};

inline status_t Condition::waitRelative(Mutex& mutex, int64_t nanos) {
    constexpr int64_t kSecond = 1000000000;
    timespec end;
    clock_gettime(CLOCK_MONOTONIC, &end);
    nanos += end.tv_nsec;
    end.tv_sec += static_cast<time_t>(nanos / kSecond);
    end.tv_nsec = static_cast<long>(nanos % kSecond);
    return -pthread_cond_timedwait(&mCond, &mutex.mMutex, &end);
}

}  // namespace android
