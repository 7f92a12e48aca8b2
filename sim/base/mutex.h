#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define SIM_ANNOTATION(x) __attribute__((x))
#else
#define SIM_ANNOTATION(x)
#endif
#define SIM_GUARDED_BY(x) SIM_ANNOTATION(guarded_by(x))
#define SIM_REQUIRES(x) SIM_ANNOTATION(requires_capability(x))
#define SIM_EXCLUDES(x) SIM_ANNOTATION(locks_excluded(x))

namespace sim {

// A plain mutex that clang's thread-safety analysis understands.
class SIM_ANNOTATION(capability("mutex")) Mutex {
  public:
    void lock() SIM_ANNOTATION(acquire_capability()) { mMutex.lock(); }
    void unlock() SIM_ANNOTATION(release_capability()) { mMutex.unlock(); }

  private:
    friend class Condition;
    std::mutex mMutex;
};

class SIM_ANNOTATION(scoped_lockable) Lock {
  public:
    explicit Lock(Mutex& mutex) SIM_ANNOTATION(acquire_capability(mutex)) : mMutex(mutex) {
        mMutex.lock();
    }
    ~Lock() SIM_ANNOTATION(release_capability()) { mMutex.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    Mutex& mMutex;
};

// A condition variable for Mutex. wait() and waitUntil() may end early: their callers check again.
class Condition {
  public:
    void wait(Mutex& mutex) SIM_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mMutex, std::adopt_lock);
        mCondition.wait(lock);
        lock.release();
    }
    // False once `deadline`, a time of the workstation's steady clock, has passed.
    bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point deadline)
        SIM_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mMutex, std::adopt_lock);
        bool inTime = mCondition.wait_until(lock, deadline) == std::cv_status::no_timeout;
        lock.release();
        return inTime;
    }
    // Waits until `ready`, called under the lock, returns true; false when it does not within
    // `timeout` of the same clock.
    template <typename Ready>
    bool waitFor(Mutex& mutex, std::chrono::nanoseconds timeout, Ready ready) SIM_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mMutex, std::adopt_lock);
        const bool isReady = mCondition.wait_for(lock, timeout, ready);
        lock.release();
        return isReady;
    }
    void notifyAll() { mCondition.notify_all(); }

  private:
    std::condition_variable mCondition;
};

}  // namespace sim
