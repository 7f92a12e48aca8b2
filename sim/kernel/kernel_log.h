#pragma once

#include <stdio.h>

#include <string>
#include <string_view>

#include "sim/base/clock.h"
#include "sim/base/line_file.h"

namespace sim {

// The kernel's ring buffer, which dmesg prints: run/kernel_log.
// Threads: any. Errors: a LineFile's.
class KernelLog : public LineFile {
  public:
    using LineFile::LineFile;

    // Adds "[  seconds.micros] text" with the phone's time since boot.
    bool append(std::string_view text) {
        const long long micros = Clock::get().bootNanos() / 1000;
        char stamp[40];
        snprintf(stamp, sizeof(stamp), "[%5lld.%06lld] ", micros / 1000000, micros % 1000000);
        return LineFile::append(stamp + std::string(text));
    }
};

}  // namespace sim
