#pragma once

#include <string>
#include <string_view>

#include "sim/base/fd.h"
#include "sim/base/mutex.h"

namespace sim {

// A file of text lines shared by every process of the phone. Beyond kMaxBytes the oldest lines are
// dropped.
// Threads: any. Errors: a line that cannot be written is lost; the constructor throws
// std::runtime_error when the file cannot be opened.
class LineFile {
  public:
    static constexpr size_t kMaxBytes = 256 * 1024;
    static constexpr size_t kMaxLineBytes = 1024;

    explicit LineFile(const std::string& path);

    // Cuts a line after kMaxLineBytes; newlines in it become blanks.
    void append(std::string_view line) SIM_EXCLUDES(mMutex);
    std::string read() SIM_EXCLUDES(mMutex);
    // Reads and empties the file in one step, so that no line is read twice or lost in between.
    std::string readAndClear() SIM_EXCLUDES(mMutex);

  private:
    std::string content() SIM_REQUIRES(mMutex);

    Mutex mMutex;
    const Fd mFd;
};

}  // namespace sim
