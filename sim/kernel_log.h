#pragma once

#include <string>
#include <string_view>

#include "sim/fd.h"
#include "sim/mutex.h"

namespace sim {

// The kernel's ring buffer, which dmesg prints: run/kernel_log, shared by every process of the
// phone. When more than kBytes are in it the oldest lines go.
// Threads: any. Errors: a line that cannot be written is lost.
class KernelLog {
  public:
    static constexpr size_t kBytes = 256 * 1024;

    explicit KernelLog(std::string path);

    // Adds "[  seconds.micros] text" with the phone's time since boot; newlines become blanks.
    void append(std::string_view text) SIM_EXCLUDES(mMutex);
    std::string read() SIM_EXCLUDES(mMutex);
    // Reads and empties in one step: no line is given twice and none is lost between.
    std::string readAndClear() SIM_EXCLUDES(mMutex);

  private:
    std::string content() SIM_REQUIRES(mMutex);

    Mutex mMutex;
    const std::string mPath;
    const Fd mFd;
};

}  // namespace sim
