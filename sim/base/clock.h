#pragma once

#include <time.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <set>

#include "sim/base/mutex.h"

namespace sim {

// The phone's clock. Its three times, monotonic, since boot and wall time, move together: with the
// workstation's clocks, or after hold() by advance() alone.
//
// Threads: any. Needs no open Phone.
// Order: release() continues from the current (possibly advanced) time; time never goes back.
// Units: nanoseconds; wall time counts from the epoch.
class Clock {
  public:
    static Clock& get();

    int64_t monotonicNanos() const { return now(CLOCK_MONOTONIC); }
    int64_t bootNanos() const { return now(CLOCK_BOOTTIME); }
    int64_t wallNanos() const { return now(CLOCK_REALTIME); }

    void hold();
    void release();
    // Moves the clock on, held or not, and wakes the sleepers that are due.
    void advance(std::chrono::nanoseconds step);

    // Blocks until the clock has moved on by `duration`; a held clock moves by advance() alone.
    // Zero or less returns at once.
    void sleep(std::chrono::nanoseconds duration);

    // Waits until at least `count` threads sleep on the clock that are not due to wake; false after
    // `timeout` of real time.
    bool waitForSleepers(int count, std::chrono::seconds timeout = std::chrono::seconds(30));

  private:
    Clock() = default;
    int64_t now(clockid_t id) const {
        // Relaxed: a reading that races with hold() or advance() may fall on either side of it.
        int64_t offset = mOffset.load(std::memory_order_relaxed);
        return offset == kHeld ? heldNow(id) : real(id) + offset;
    }
    static int64_t real(clockid_t id);
    int64_t heldNow(clockid_t id) const;
    int64_t lockedNow(clockid_t id) const SIM_REQUIRES(mMutex);
    int sleepers() const SIM_REQUIRES(mMutex);

    static constexpr int64_t kHeld = INT64_MIN;
    // The offset from the workstation's clocks, or kHeld.
    std::atomic<int64_t> mOffset{0};
    mutable Mutex mMutex;
    Condition mChanged;
    int64_t mHeldMonotonic SIM_GUARDED_BY(mMutex) = 0;
    int64_t mHeldBoot SIM_GUARDED_BY(mMutex) = 0;
    int64_t mHeldWall SIM_GUARDED_BY(mMutex) = 0;
    std::multiset<int64_t> mSleepers SIM_GUARDED_BY(mMutex);  // when each wakes, monotonic
};

}  // namespace sim
