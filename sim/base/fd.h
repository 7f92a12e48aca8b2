#pragma once

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <string_view>
#include <utility>

namespace sim {

// Owns one file descriptor, or none (-1).
class Fd {
  public:
    explicit Fd(int fd = -1) : mFd(fd) {}
    Fd(Fd&& other) noexcept : mFd(other.release()) {}
    Fd& operator=(Fd&& other) noexcept {
        std::swap(mFd, other.mFd);
        return *this;
    }
    ~Fd() {
        if (mFd >= 0) close(mFd);
    }
    int get() const { return mFd; }
    bool valid() const { return mFd >= 0; }
    int release() { return std::exchange(mFd, -1); }

  private:
    int mFd;
};

// Opens a directory, to lock it. Invalid with errno set on failure.
Fd openDirectory(const std::string& path);

// Takes the file's advisory lock and keeps it until the file is closed. False with errno set on
// failure: EBUSY when `timeout` passes first, since a stopped process would hold the lock for ever.
bool lockWithin(int fd, std::chrono::milliseconds timeout);

// Holds the advisory lock of an open file against every other opening of that file, in this process
// too; the descriptor stays open. Waits a second at most.
class FileLock {
  public:
    explicit FileLock(int fd) : mFd(fd), mHeld(lockWithin(fd, std::chrono::seconds(1))) {}
    ~FileLock() {
        if (mHeld) flock(mFd, LOCK_UN);
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // False, with the constructor's errno, when the lock could not be taken.
    bool held() const { return mHeld; }

  private:
    const int mFd;
    const bool mHeld;
};

// Writes all of `size` bytes; false with errno set as soon as the file takes no more.
bool writeAll(int fd, const char* data, size_t size);

// Makes a file (0600), or replaces its content, with this text. When it cannot be written whole the
// file is removed: false with errno set.
bool writeFile(const std::string& path, std::string_view text);

// Reads from the descriptor's position to the end, at most `limit` bytes.
std::string readAll(int fd, size_t limit = SIZE_MAX);

// Says what is wrong with the text as the number of an open descriptor of this process; "" when
// nothing is.
std::string descriptorFault(const std::string& text);

// Waits until `watch`, which inotify made, has events, and drops them. False when the time passes
// first (-1: no limit), and within a second when there is no such directory any more: it may have
// gone with one above it.
bool awaitChange(const Fd& watch, const std::string& directory, int timeoutMillis);

// Signals readiness to the process that reads the other end of this pipe: writes "ready" and a
// newline and closes the descriptor. No effect for -1.
void tellReady(int fd);

}  // namespace sim
