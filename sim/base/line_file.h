#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace sim {

// A file of text lines shared by every process of the phone. Beyond kMaxBytes the oldest lines are
// dropped. It is opened anew by each call, and made by the first line.
// Threads: any. Errors: those of the file, and EBUSY when another process keeps it locked.
class LineFile {
  public:
    static constexpr size_t kMaxBytes = 256 * 1024;
    static constexpr size_t kMaxLineBytes = 1024;

    explicit LineFile(std::string path) : mPath(std::move(path)) {}

    // Cuts a line after kMaxLineBytes; newlines in it become blanks. False with errno set, and
    // nothing of the line in the file, when it cannot be written whole.
    bool append(std::string_view line);
    // The lines; nothing, with errno set, when the file is there and cannot be read.
    std::optional<std::string> read() const;
    // Reads and empties the file in one step, so that no line is read twice or lost in between.
    // Nothing, with errno set and the lines kept, when it cannot do both.
    std::optional<std::string> readAndClear();

  private:
    const std::string mPath;
};

}  // namespace sim
