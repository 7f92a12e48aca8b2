#pragma once

#include <stdint.h>

#include <algorithm>
#include <chrono>

namespace pelto {

// A point in the workstation's time, whatever the phone's clock does; 0 seconds is never.
class Deadline {
  public:
    explicit Deadline(double seconds)
        : mLimited(seconds > 0),
          mEnd(Clock::now() + std::chrono::nanoseconds(static_cast<int64_t>(seconds * 1e9))) {}

    bool limited() const { return mLimited; }
    bool passed() const { return mLimited && Clock::now() >= mEnd; }
    // 0 when it has passed; only for a limited one.
    int64_t leftNanos() const {
        return std::max<int64_t>(std::chrono::nanoseconds(mEnd - Clock::now()).count(), 0);
    }
    // For poll(): rounded up, -1 without a limit.
    int leftMillis() const {
        if (!mLimited) return -1;
        return static_cast<int>(std::min<int64_t>((leftNanos() + 999999) / 1000000, INT32_MAX));
    }

  private:
    using Clock = std::chrono::steady_clock;

    const bool mLimited;
    const Clock::time_point mEnd;
};

}  // namespace pelto
