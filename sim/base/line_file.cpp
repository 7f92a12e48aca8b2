#include "sim/base/line_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "sim/base/fd.h"

namespace sim {
namespace {

Fd openFile(const std::string& path, int flags) {
    return Fd(open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
}

// Drops half of a file that has grown too long, so that it is rarely rewritten.
bool shorten(int fd, size_t size) {
    if (size <= LineFile::kMaxBytes) return true;
    std::string kept = readAll(fd);
    kept.erase(0, kept.find('\n', kept.size() - LineFile::kMaxBytes / 2) + 1);
    return ftruncate(fd, 0) == 0 && writeAll(fd, kept.data(), kept.size());
}

std::optional<std::string> readWhole(const std::string& path, bool clears) {
    const Fd file = openFile(path, clears ? O_RDWR : O_RDONLY);
    if (!file.valid() && errno == ENOENT) return "";  // no line yet
    if (!file.valid()) return std::nullopt;
    const FileLock lock(file.get());
    if (!lock.held()) return std::nullopt;
    std::string text = readAll(file.get());
    if (clears && ftruncate(file.get(), 0) < 0) return std::nullopt;
    return text;
}

}  // namespace

bool LineFile::append(std::string_view line) {
    std::string text(line.substr(0, kMaxLineBytes));
    std::replace(text.begin(), text.end(), '\n', ' ');
    text += '\n';

    const Fd file = openFile(mPath, O_RDWR | O_CREAT | O_APPEND);
    if (!file.valid()) return false;
    const FileLock lock(file.get());
    struct stat status {};
    if (!lock.held() || fstat(file.get(), &status) < 0 ||
        !shorten(file.get(), static_cast<size_t>(status.st_size)))
        return false;
    const off_t end = lseek(file.get(), 0, SEEK_END);
    if (writeAll(file.get(), text.data(), text.size())) return true;
    const int error = errno;
    if (ftruncate(file.get(), end) < 0) return false;
    errno = error;
    return false;
}

std::optional<std::string> LineFile::read() const {
    return readWhole(mPath, false);
}

std::optional<std::string> LineFile::readAndClear() {
    return readWhole(mPath, true);
}

}  // namespace sim
