#include "sim/userspace/log.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

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

Log::Log(std::string directory, off_t fileBytes)
    : mDirectory(std::move(directory)), mFileBytes(fileBytes) {
    openCurrent();
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
    char line[kMaxMessageBytes + kMaxTagBytes + 64] = "\n";  // before the line: see append()
    const int64_t second = record.wallNanos / 1000000000;
    const int millis = static_cast<int>(record.wallNanos / 1000000 % 1000);
    int head =
        snprintf(line + 1, sizeof(line) - 1, "%s.%03d %5d %5d %c %-8.*s: ", secondText(second),
                 millis, getpid(), record.tid, letter(record.priority),
                 static_cast<int>(std::min(record.tag.size(), kMaxTagBytes)), record.tag.data());
    if (head < 0) return false;
    size_t size = 1 + static_cast<size_t>(head);
    memcpy(line + size, text.data(), text.size());
    size += text.size();
    line[size++] = '\n';
    return append({line, size});
}

// `line` begins with a newline of the line before, in case that one was cut short.
bool Log::append(std::string_view line) {
    struct stat status {};
    if (!isCurrent(status)) {
        openCurrent();
        if (fstat(mFd.load(std::memory_order_relaxed), &status) < 0 || status.st_nlink == 0)
            return false;
    }
    const int fd = mFd.load(std::memory_order_relaxed);
    if (!endsInsideLine(fd, status.st_size)) line.remove_prefix(1);
    return ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

// Whether lines still go into the opened file. One that was rotated is past its size.
bool Log::isCurrent(struct stat& status) const {
    return fstat(mFd.load(std::memory_order_relaxed), &status) == 0 && status.st_nlink > 0 &&
           status.st_size <= mFileBytes;
}

bool Log::endsInsideLine(int fd, off_t size) {
    char last = '\n';
    return size > 0 && pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

void Log::openCurrent() {
    Lock lock(mOpening);
    rotate();
    Fd opened(open(path("main").c_str(),
                   O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    if (!opened.valid()) return;  // lines go on into the old file
    const int fd = mFd.load(std::memory_order_relaxed);
    if (fd < 0) {
        mFd.store(opened.release(), std::memory_order_relaxed);
    } else {
        dup3(opened.get(), fd, O_CLOEXEC);
    }
}

// Renames "main" when it is full. A stopped process may hold the lock; the next line tries again.
void Log::rotate() const {
    const Fd directory(open(mDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (flock(directory.get(), LOCK_EX | LOCK_NB) < 0) return;
    struct stat status {};
    if (stat(path("main").c_str(), &status) == 0 && status.st_size > mFileBytes)
        rename(path("main").c_str(), path("main.old").c_str());
}

bool Log::clear() {
    const Fd directory(open(mDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.valid() || !lockWithin(directory.get(), std::chrono::seconds(1))) return false;
    for (const char* name : {"main.old", "main"}) {
        if (unlink(path(name).c_str()) < 0 && errno != ENOENT) return false;
    }
    return true;
}

void Log::observe(Observer observer) {
    Lock lock(mObserverMutex);
    mObserver = std::move(observer);
    mObserved.store(static_cast<bool>(mObserver), std::memory_order_relaxed);
}

}  // namespace sim
