#include "sim/base/clock.h"

#include <iterator>

namespace sim {

Clock& Clock::get() {
    static Clock* clock = new Clock;
    return *clock;
}

int64_t Clock::real(clockid_t id) {
    timespec time;
    clock_gettime(id, &time);
    return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

int64_t Clock::heldNow(clockid_t id) const {
    Lock lock(mMutex);
    return lockedNow(id);
}

int64_t Clock::lockedNow(clockid_t id) const {
    int64_t offset = mOffset.load(std::memory_order_relaxed);
    if (offset != kHeld) return real(id) + offset;
    if (id == CLOCK_MONOTONIC) return mHeldMonotonic;
    return id == CLOCK_BOOTTIME ? mHeldBoot : mHeldWall;
}

void Clock::hold() {
    Lock lock(mMutex);
    mHeldMonotonic = lockedNow(CLOCK_MONOTONIC);
    mHeldBoot = lockedNow(CLOCK_BOOTTIME);
    mHeldWall = lockedNow(CLOCK_REALTIME);
    mOffset.store(kHeld, std::memory_order_relaxed);
    mChanged.notifyAll();
}

void Clock::release() {
    Lock lock(mMutex);
    if (mOffset.load(std::memory_order_relaxed) != kHeld) return;
    mOffset.store(mHeldMonotonic - real(CLOCK_MONOTONIC), std::memory_order_relaxed);
    mChanged.notifyAll();
}

void Clock::advance(std::chrono::nanoseconds step) {
    Lock lock(mMutex);
    if (mOffset.load(std::memory_order_relaxed) == kHeld) {
        mHeldMonotonic += step.count();
        mHeldBoot += step.count();
        mHeldWall += step.count();
    } else {
        mOffset.fetch_add(step.count(), std::memory_order_relaxed);
    }
    mChanged.notifyAll();
}

void Clock::sleep(std::chrono::nanoseconds duration) {
    Lock lock(mMutex);
    int64_t left = duration.count();
    const int64_t end = lockedNow(CLOCK_MONOTONIC) + left;
    const auto sleeper = mSleepers.insert(end);
    mChanged.notifyAll();
    for (; left > 0; left = end - lockedNow(CLOCK_MONOTONIC)) {
        if (mOffset.load(std::memory_order_relaxed) == kHeld) {
            mChanged.wait(mMutex);
        } else {
            mChanged.waitUntil(mMutex,
                               std::chrono::steady_clock::now() + std::chrono::nanoseconds(left));
        }
    }
    mSleepers.erase(sleeper);
}

// A thread that is due counts as awake, even before it has run.
int Clock::sleepers() const {
    const auto first = mSleepers.upper_bound(lockedNow(CLOCK_MONOTONIC));
    return static_cast<int>(std::distance(first, mSleepers.end()));
}

bool Clock::waitForSleepers(int count, std::chrono::seconds timeout) {
    Lock lock(mMutex);
    return mChanged.waitFor(mMutex, timeout,
                            [&]() SIM_REQUIRES(mMutex) { return sleepers() >= count; });
}

}  // namespace sim
