#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/fd.h"
#include "sim/userspace/phone_log.h"

namespace sim {

// One line of the log, taken apart; the views lie in the text that was parsed.
struct LogLine {
    int priority = 0;
    std::string_view tag;
    std::string_view message;

    // False for what is no line of the log.
    bool parse(std::string_view line);
};

// What logcat's words ask for: -d (print and end), -c (clear), -t COUNT (the last so many, and
// end), -s (silence what no filter names), -v threadtime, and filters "TAG:P", "TAG", "*:P" with P
// of v d i w e f s. Without filters, and for tags none of them names, everything passes.
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

// Reads the log's files, whoever writes them; needs only the log's directory.
// Threads: one.
class LogReader {
  public:
    explicit LogReader(const std::string& directory);

    // Gives every whole line that has not been given before, oldest first, without its newline.
    void read(const std::function<void(std::string_view)>& take);
    // Waits until there may be more, at most so long (-1: for ever); false when there is not.
    bool wait(int timeoutMillis);

  private:
    void openFiles();
    void drain(const std::function<void(std::string_view)>& take);
    bool mainWasReplaced() const;

    const std::string mDirectory;
    Fd mWatch;  // before the first look at the files, so that no change goes unseen
    Fd mOld;
    Fd mMain;
    std::string mPartial;
};

// Prints what the options ask for of the log in `directory`, and with neither -d, -c nor -t goes on
// until the output takes no more. Returns an exit status.
int runLogcat(const std::string& directory, const LogcatOptions& options, int outputFd);

}  // namespace sim
