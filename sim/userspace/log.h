#pragma once

#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>

#include "sim/base/mutex.h"

namespace sim {

// The priorities of a log line, by their numbers on a phone.
enum Priority { kVerbose = 2, kDebug, kInfo, kWarn, kError, kFatal, kSilent };

// The phone's log: run/log/main, one line a record in the form
//   MM-DD HH:MM:SS.mmm PID TID P TAG: message
// shared by every process that opened the phone. Past kMaxFileBytes the file is renamed to
// main.old, over the former main.old. A line goes into a new file when the file was removed, and on
// a line of its own when the disk took only a part of the one before it.
//
// Threads: any. A line is one write() with O_APPEND; a lock is taken for a rotation only.
// Errors: a line that cannot be written is lost; the caller never waits. errno is kept.
class Log {
  public:
    struct Record {
        int priority;
        std::string_view tag;
        std::string_view message;  // as logged, neither cut nor split
        pid_t tid;
        int64_t wallNanos;
    };
    using Observer = std::function<void(const Record&)>;

    static constexpr size_t kMaxMessageBytes = 4096;
    static constexpr size_t kMaxTagBytes = 128;
    static constexpr off_t kMaxFileBytes = 4 << 20;

    // `directory` exists. Opens or makes the file in it; when that fails, each line tries again.
    explicit Log(std::string directory, off_t fileBytes = kMaxFileBytes);

    // Writes one log line per line of the message; false when one is lost.
    bool write(int priority, std::string_view tag, std::string_view message);

    // Has `observer` called for every record of this process, before its line is written: on the
    // logging thread, one record at a time. It must not log. An empty function ends this.
    void observe(Observer observer) SIM_EXCLUDES(mObserverMutex);

    // Drops every line, for every process. False with errno set on failure: EBUSY, with nothing
    // dropped, when another process has held the rotation's lock for a second.
    bool clear();

    const std::string& directory() const { return mDirectory; }
    // The letter of a priority: 'V', 'D', ...; '?' for a number that is none.
    static char letter(int priority);

  private:
    bool writeLine(const Record& record, std::string_view text);
    bool append(std::string_view line);
    bool isCurrent(struct stat& status) const;
    static bool endsInsideLine(int fd, off_t size);
    void openCurrent() SIM_EXCLUDES(mOpening);
    void rotate() const;
    std::string path(const char* name) const { return mDirectory + "/" + name; }

    const std::string mDirectory;
    const off_t mFileBytes;
    // Keeps its number: a new file is put under it while others may be writing.
    std::atomic<int> mFd{-1};
    Mutex mOpening;
    std::atomic<bool> mObserved{false};
    Mutex mObserverMutex;
    Observer mObserver SIM_GUARDED_BY(mObserverMutex);
};

}  // namespace sim
