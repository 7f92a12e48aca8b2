#include "sim/userspace/log.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "sim/base/clock.h"
#include "sim/base/fd.h"
#include "sim/base/text.h"

namespace sim {
namespace {

pid_t currentTid() {
    static thread_local const pid_t tid = gettid();
    return tid;
}

// "MM-DD HH:MM:SS" of a second; each thread caches the last one.
const char* secondText(int64_t second) {
    static thread_local int64_t lastSecond = -1;
    static thread_local char text[16];
    if (second != lastSecond) {
        snprintf(text, sizeof(text), "%s", localTime("%m-%d %H:%M:%S", second).c_str());
        lastSecond = second;
    }
    return text;
}

}  // namespace

Log::Log(std::string directory, uint32_t fileBytes)
    : mDirectory(std::move(directory)), mFileBytes(fileBytes) {
    static_assert(sizeof(Shared) == 8 && std::atomic<uint32_t>::is_always_lock_free,
                  "shared between processes");
    const std::string statePath = mDirectory + "/state";
    mLockFd = open(statePath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (mLockFd < 0 || ftruncate(mLockFd, sizeof(Shared)) < 0)
        throw std::runtime_error(statePath + ": " + strerror(errno));
    void* mapped = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, mLockFd, 0);
    if (mapped == MAP_FAILED) throw std::runtime_error(statePath + ": " + strerror(errno));
    mShared = static_cast<Shared*>(mapped);

    Lock lock(mRotation);
    FileLock fileLock(mLockFd);
    openMain(mShared->generation.load());
    if (mFd < 0) throw std::runtime_error(mDirectory + "/main: " + strerror(errno));
    struct stat status {};
    if (mShared->bytes.load() == 0 && fstat(mFd, &status) == 0)
        mShared->bytes += static_cast<uint32_t>(status.st_size);
}

char Log::letter(int priority) {
    static constexpr char kLetters[] = "?\?VDIWEFS";
    return priority >= 0 && priority <= 8 ? kLetters[priority] : '?';
}

bool Log::write(int priority, std::string_view tag, std::string_view message) {
    const int savedErrno = errno;
    const Record record{priority, tag, message, currentTid(), Clock::get().wallNanos()};
    if (mObserved.load(std::memory_order_relaxed)) {
        Lock lock(mObserverMutex);
        if (mObserver) mObserver(record);
    }
    std::string_view rest = message.substr(0, kMaxMessageBytes);
    bool written = true;
    for (size_t end; (end = rest.find('\n')) != rest.npos; rest.remove_prefix(end + 1)) {
        written &= writeLine(record, rest.substr(0, end));
    }
    // A newline at the end closes the last line; it does not open an empty one.
    if (!rest.empty() || message.empty()) written &= writeLine(record, rest);
    errno = savedErrno;
    return written;
}

bool Log::writeLine(const Record& record, std::string_view text) {
    char line[kMaxMessageBytes + kMaxTagBytes + 64];
    const int64_t second = record.wallNanos / 1000000000;
    const int millis = static_cast<int>(record.wallNanos / 1000000 % 1000);
    int head =
        snprintf(line, sizeof(line), "%s.%03d %5d %5d %c %-8.*s: ", secondText(second), millis,
                 getpid(), record.tid, letter(record.priority),
                 static_cast<int>(std::min(record.tag.size(), kMaxTagBytes)), record.tag.data());
    if (head < 0) return false;
    size_t size = static_cast<size_t>(head);
    memcpy(line + size, text.data(), text.size());
    size += text.size();
    line[size++] = '\n';
    return append(line, size);
}

bool Log::append(const char* line, size_t size) {
    const uint32_t generation = mShared->generation.load(std::memory_order_acquire);
    if (generation != mGeneration.load(std::memory_order_relaxed)) reopen(generation);
    if (::write(mFd, line, size) != static_cast<ssize_t>(size)) return false;
    const uint32_t added = static_cast<uint32_t>(size);
    if (mShared->bytes.fetch_add(added, std::memory_order_relaxed) + added > mFileBytes) rotate();
    return true;
}

void Log::reopen(uint32_t generation) {
    Lock lock(mRotation);
    if (mGeneration.load(std::memory_order_relaxed) != generation) openMain(generation);
}

void Log::openMain(uint32_t generation) {
    const std::string path = mDirectory + "/main";
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) return;  // lines go on into the old file
    if (mFd < 0) {
        mFd = fd;
    } else {
        dup3(fd, mFd, O_CLOEXEC);
        close(fd);
    }
    mGeneration.store(generation, std::memory_order_relaxed);
}

void Log::rotate() {
    Lock lock(mRotation);
    // A stopped process may hold the lock; the next line tries again.
    if (flock(mLockFd, LOCK_EX | LOCK_NB) < 0) return;
    if (mShared->bytes.load() > mFileBytes) {  // not rotated by another meanwhile
        rename((mDirectory + "/main").c_str(), (mDirectory + "/main.old").c_str());
        mShared->bytes.store(0);
        openMain(mShared->generation.fetch_add(1, std::memory_order_release) + 1);
    }
    flock(mLockFd, LOCK_UN);
}

bool Log::clear() {
    // Opens the lock file again: flock() then also excludes rotate() in this process, and waiting
    // does not hold mRotation, which writers need.
    const Fd state(open((mDirectory + "/state").c_str(), O_RDWR | O_CLOEXEC));
    if (!lockWithin(state.get(), std::chrono::seconds(1))) return false;
    Lock lock(mRotation);
    unlink((mDirectory + "/main").c_str());
    unlink((mDirectory + "/main.old").c_str());
    mShared->bytes.store(0);
    openMain(mShared->generation.fetch_add(1, std::memory_order_release) + 1);
    return true;
}

void Log::observe(Observer observer) {
    Lock lock(mObserverMutex);
    mObserver = std::move(observer);
    mObserved.store(static_cast<bool>(mObserver), std::memory_order_relaxed);
}

}  // namespace sim
