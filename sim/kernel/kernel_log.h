#pragma once

#include <string_view>

#include "sim/base/line_file.h"

namespace sim {

// The kernel's ring buffer, which dmesg prints: run/kernel_log.
// Threads: any.
class KernelLog : public LineFile {
  public:
    using LineFile::LineFile;

    // Adds "[  seconds.micros] text" with the phone's time since boot.
    void append(std::string_view text);
};

}  // namespace sim
