#include "sim/kernel_log.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>

#include "sim/clock.h"

namespace sim {

KernelLog::KernelLog(std::string path)
    : mPath(std::move(path)),
      mFd(open(mPath.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
    if (!mFd.valid()) throw std::runtime_error(mPath + ": " + strerror(errno));
}

void KernelLog::append(std::string_view text) {
    const long long micros = Clock::get().bootNanos() / 1000;
    char stamp[40];
    snprintf(stamp, sizeof(stamp), "[%5lld.%06lld] ", micros / 1000000, micros % 1000000);
    std::string line = stamp + std::string(text.substr(0, 1024));
    std::replace(line.begin(), line.end(), '\n', ' ');
    line += '\n';

    Lock lock(mMutex);
    FileLock fileLock(mFd.get());
    struct stat status {};
    if (fstat(mFd.get(), &status) == 0 && static_cast<size_t>(status.st_size) > kBytes) {
        // Half of it goes at a time, so that the file is rarely rewritten.
        std::string kept = content();
        kept.erase(0, kept.find('\n', kept.size() - kBytes / 2) + 1);
        if (ftruncate(mFd.get(), 0) == 0) writeAll(mFd.get(), kept.data(), kept.size());
    }
    writeAll(mFd.get(), line.data(), line.size());
}

std::string KernelLog::read() {
    Lock lock(mMutex);
    FileLock fileLock(mFd.get());
    return content();
}

std::string KernelLog::readAndClear() {
    Lock lock(mMutex);
    FileLock fileLock(mFd.get());
    std::string text = content();
    if (ftruncate(mFd.get(), 0) < 0) return "";
    return text;
}

std::string KernelLog::content() {
    lseek(mFd.get(), 0, SEEK_SET);
    return readAll(mFd.get());
}

}  // namespace sim
