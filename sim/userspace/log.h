#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>

#include "sim/base/mutex.h"

namespace sim {

// The phone's log: run/log/main, one line a record in the form
//   MM-DD HH:MM:SS.mmm PID TID P TAG: message
// shared by every process that opened the phone. Past kFileBytes the file becomes main.old, the
// former main.old is dropped.
//
// Threads: any. A line is one write() with O_APPEND, no lock is taken unless the file is rotated.
// Errors: a line that cannot be written is lost; the caller is never held up. errno is kept.
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

    static constexpr size_t kMessageBytes = 4096;
    static constexpr size_t kTagBytes = 128;
    static constexpr uint32_t kFileBytes = 4u << 20;

    // `directory` exists; throws std::runtime_error when the log in it cannot be opened.
    explicit Log(std::string directory, uint32_t fileBytes = kFileBytes);

    // Returns whether all of it was written. A message with newlines becomes several lines.
    bool write(int priority, std::string_view tag, std::string_view message);

    // Called for every record of this process, on the logging thread, one at a time, before the
    // line is written; it must not log. An empty function ends it.
    void observe(Observer observer) SIM_EXCLUDES(mObserverMutex);

    // Drops every line, for every process. False, and nothing is dropped, when another process has
    // kept the rotation to itself for a second.
    bool clear() SIM_EXCLUDES(mRotation);

    const std::string& directory() const { return mDirectory; }
    // 'V', 'D', ... and '?' for what is no priority.
    static char letter(int priority);

  private:
    // Mapped from run/log/state by every process, so that a writer learns of a rotation without
    // a system call.
    struct Shared {
        std::atomic<uint32_t> generation;  // of the file called "main"
        std::atomic<uint32_t> bytes;       // in it
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
