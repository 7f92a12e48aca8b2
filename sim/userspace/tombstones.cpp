#include "sim/userspace/tombstones.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include "sim/base/clock.h"
#include "sim/base/fd.h"
#include "sim/base/root.h"
#include "sim/base/text.h"

namespace sim {
namespace {

constexpr char kDirectory[] = "/data/tombstones";
constexpr char kFresh[] = "/data/tombstones/.fresh";  // hidden, so that "*" does not match it
constexpr int kMaxTombstones = 32;
constexpr size_t kMaxTextBytes = 256;

std::string pathOf(int number) {
    char path[40];
    snprintf(path, sizeof(path), "%s/tombstone_%02d", kDirectory, number);
    return path;
}

// The first free path, else that of the oldest tombstone.
std::string nextPath(const Root& root) {
    std::string oldest;
    struct timespec oldestTime {};
    for (int i = 0; i < kMaxTombstones; ++i) {
        struct stat status {};
        const std::string path = pathOf(i);
        if (root.stat(path.c_str(), &status) != 0 && errno == ENOENT) return path;
        const struct timespec& time = status.st_mtim;
        if (oldest.empty() || time.tv_sec < oldestTime.tv_sec ||
            (time.tv_sec == oldestTime.tv_sec && time.tv_nsec < oldestTime.tv_nsec)) {
            oldest = path;
            oldestTime = time;
        }
    }
    return oldest;
}

std::string clean(const std::string& text) {
    return printable(text.substr(0, kMaxTextBytes));
}

std::string textOf(const Crash& crash) {
    const std::string process = clean(crash.process), pid = std::to_string(crash.pid);
    const std::string time =
        localTime("%Y-%m-%d %H:%M:%S%z", Clock::get().wallNanos() / 1000000000);
    return "*** *** *** *** *** *** *** *** *** *** *** *** *** *** *** ***\n"
           "ABI: 'arm'\nTimestamp: " +
           time + "\npid: " + pid + ", tid: " + pid + ", name: " + process + "  >>> /system/bin/" +
           process + " <<<\nsignal " + std::to_string(crash.signal) + " (" +
           strsignal(crash.signal) +
           "), code -1 (SI_QUEUE), fault addr --------\nAbort message: '" + clean(crash.reason) +
           "'\n    r0  00000000  r1  " +
           "00000000  r2  00000006  r3  ffb3a2c8\n\nbacktrace:\n"
           "      #00 pc 00062c5c  /system/lib/libc.so (abort+172)\n"
           "      #01 pc 0000a1f3  /system/bin/" +
           process + "\n";
}

}  // namespace

std::string writeTombstone(const Root& root, const Crash& crash) {
    const Fd directory(root.open(kDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
    const FileLock lock(directory.get());
    if (!lock.held()) return "";
    const std::string path = nextPath(root), text = textOf(crash);
    const Fd fd(root.open(kFresh, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
    if (fd.valid() && writeAll(fd.get(), text.data(), text.size()) &&
        root.rename(kFresh, path.c_str()) == 0) {
        return path;
    }
    root.remove(kFresh);
    return "";
}

}  // namespace sim
