#include "sim/base/line_file.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>

namespace sim {

LineFile::LineFile(const std::string& path)
    : mFd(open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
    if (!mFd.valid()) throw std::runtime_error(path + ": " + strerror(errno));
}

void LineFile::append(std::string_view line) {
    std::string text(line.substr(0, kMaxLineBytes));
    std::replace(text.begin(), text.end(), '\n', ' ');
    text += '\n';

    Lock lock(mMutex);
    FileLock fileLock(mFd.get());
    struct stat status {};
    if (fstat(mFd.get(), &status) == 0 && static_cast<size_t>(status.st_size) > kMaxBytes) {
        // Drops half of the file at a time, so that it is rarely rewritten.
        std::string kept = content();
        kept.erase(0, kept.find('\n', kept.size() - kMaxBytes / 2) + 1);
        if (ftruncate(mFd.get(), 0) == 0) writeAll(mFd.get(), kept.data(), kept.size());
    }
    writeAll(mFd.get(), text.data(), text.size());
}

std::string LineFile::read() {
    Lock lock(mMutex);
    FileLock fileLock(mFd.get());
    return content();
}

std::string LineFile::readAndClear() {
    Lock lock(mMutex);
    FileLock fileLock(mFd.get());
    std::string text = content();
    if (ftruncate(mFd.get(), 0) < 0) return "";
    return text;
}

std::string LineFile::content() {
    lseek(mFd.get(), 0, SEEK_SET);
    return readAll(mFd.get());
}

}  // namespace sim
