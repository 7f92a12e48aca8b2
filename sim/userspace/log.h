#pragma once

#include <stdint.h>
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
// main.old, over the former main.old.
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
    static constexpr uint32_t kMaxFileBytes = 4u << 20;

    // `directory` exists; throws std::runtime_error when the log in it cannot be opened.
    explicit Log(std::string directory, uint32_t fileBytes = kMaxFileBytes);

    // Writes one log line per line of the message; false when one is lost.
    bool write(int priority, std::string_view tag, std::string_view message);

    // Has `observer` called for every record of this process, before its line is written: on the
    // logging thread, one record at a time. It must not log. An empty function ends this.
    void observe(Observer observer) SIM_EXCLUDES(mObserverMutex);

    // Drops every line, for every process. False, with nothing dropped, when another process has
    // held the rotation's lock for a second.
    bool clear() SIM_EXCLUDES(mRotation);

    const std::string& directory() const { return mDirectory; }
    // The letter of a priority: 'V', 'D', ...; '?' for a number that is none.
    static char letter(int priority);

  private:
    // Mapped from run/log/state by every process, so that a writer notices a rotation without a
    // system call.
    struct Shared {
        std::atomic<uint32_t> generation;  // counts the files that have been "main"
        std::atomic<uint32_t> bytes;       // size of that file
    };

    bool writeLine(const Record& record, std::string_view text);
    bool append(const char* line, size_t size);
    void reopen(uint32_t generation) SIM_EXCLUDES(mRotation);
    void openMain(uint32_t generation) SIM_REQUIRES(mRotation);
    void rotate() SIM_EXCLUDES(mRotation);

    const std::string mDirectory;
    const uint32_t mFileBytes;
    Shared* mShared = nullptr;
    int mLockFd = -1;
    int mFd = -1;  // keeps its number: a new file is put under it while others may be writing
    std::atomic<uint32_t> mGeneration{0};
    Mutex mRotation;
    std::atomic<bool> mObserved{false};
    Mutex mObserverMutex;
    Observer mObserver SIM_GUARDED_BY(mObserverMutex);
};

}  // namespace sim
