#include "sim/base/fd.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>

#include <algorithm>

#include "sim/base/text.h"

namespace sim {

Fd openDirectory(const std::string& path) {
    return Fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool lockWithin(int fd, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (flock(fd, LOCK_EX | LOCK_NB) < 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) return false;
        if (std::chrono::steady_clock::now() >= deadline) {
            errno = EBUSY;
            return false;
        }
        usleep(1000);
    }
    return true;
}

bool writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        ssize_t written = write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool writeFile(const std::string& path, std::string_view text) {
    Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd.valid()) return false;
    if (writeAll(fd.get(), text.data(), text.size())) return true;
    const int error = errno;
    unlink(path.c_str());
    errno = error;
    return false;
}

std::string readAll(int fd, size_t limit) {
    std::string text;
    char block[16384];
    while (text.size() < limit) {
        ssize_t got = read(fd, block, std::min(sizeof(block), limit - text.size()));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        text.append(block, static_cast<size_t>(got));
    }
    return text;
}

std::string descriptorFault(const std::string& text) {
    const auto fd = numberIn(text, 0, INT_MAX);
    return fd && fcntl(static_cast<int>(*fd), F_GETFD) >= 0 ? "" : "is no open descriptor's number";
}

bool awaitChange(const Fd& watch, const std::string& directory, int timeoutMillis) {
    constexpr int kLookMillis = 1000;
    pollfd changed{watch.get(), POLLIN, 0};
    while (access(directory.c_str(), F_OK) == 0) {
        const int millis = timeoutMillis < 0 ? kLookMillis : std::min(timeoutMillis, kLookMillis);
        if (poll(&changed, 1, millis) > 0) {
            readAll(watch.get());
            return true;
        }
        if (timeoutMillis >= 0 && (timeoutMillis -= millis) <= 0) return false;
    }
    return false;
}

void tellReady(int fd) {
    const Fd owned(fd);
    if (owned.valid()) writeAll(owned.get(), "ready\n", 6);
}

}  // namespace sim
