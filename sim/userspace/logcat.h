#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/fd.h"
#include "sim/userspace/log.h"

namespace sim {

// One line of the log, taken apart; the views lie in the text that was parsed.
struct LogLine {
    int priority = 0;
    std::string_view tag;
    std::string_view message;

    // False when the text is not a line of the log.
    bool parse(std::string_view line);
};

// logcat's options: -d (print and end), -c (clear), -t COUNT (print the last lines and end), -s
// (silence tags without a filter), -v threadtime, and filters "TAG:P", "TAG", "*:P" with P one of v
// d i w e f s. Without filters, and for a tag that no filter names, every line passes.
struct LogcatOptions {
    bool dump = false;
    bool clear = false;
    size_t last = SIZE_MAX;

    // Returns what is wrong, or an empty text.
    std::string parse(const std::vector<std::string>& words);
    bool passes(std::string_view line) const;

  private:
    std::string addFilter(std::string_view text);

    int mOthers = kVerbose;
    std::map<std::string, int, std::less<>> mTags;
};

// Follows the log's files through their rotations; other processes may be writing.
// Threads: one.
class LogReader {
  public:
    // Without `follows` no change is waited for.
    explicit LogReader(const std::string& directory, bool follows = true);

    // Calls `take` with every whole line since the last call, oldest first, without its newline.
    void read(const std::function<void(std::string_view)>& take);
    // Waits until there may be new lines; false after the timeout (-1: none), and when the log's
    // directory has gone. Only of one that follows.
    bool wait(int timeoutMillis);

  private:
    void openFiles();
    void drain(const std::function<void(std::string_view)>& take);
    bool mainWasReplaced() const;

    const std::string mDirectory;
    Fd mWatch;  // made before the files are opened, so that no change is missed
    Fd mOld;
    Fd mMain;
    std::string mPartial;
};

// Prints the lines of the log in `directory` that pass; without -d and -t goes on until the output
// fails. Returns an exit status.
int runLogcat(const std::string& directory, const LogcatOptions& options, int outputFd);

}  // namespace sim
