#include "sim/userspace/properties.h"

#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <memory>

#include "sim/base/fd.h"
#include "sim/base/text.h"
#include "sim/userspace/log.h"
#include "sim/userspace/services.h"

namespace sim {
namespace {

constexpr size_t kMaxKeyBytes = 128;
constexpr char kServiceState[] = "init.svc.";
// How the names of half-written values start; process and count follow. No key starts with ".".
constexpr char kFresh[] = ".set-";

bool startsWith(const std::string& text, const char* start) {
    return text.compare(0, strlen(start), start) == 0;
}

bool isKey(const std::string& key) {
    if (key.empty() || key.size() > kMaxKeyBytes || key.front() == '.' || key.back() == '.')
        return false;
    if (key.find("..") != key.npos) return false;
    return std::all_of(key.begin(), key.end(), [](unsigned char c) {
        return isalnum(c) != 0 || (c != 0 && strchr("._@:-", c) != nullptr);
    });
}

// Whether it is a value that a process was writing when it ended.
bool isLeftover(const std::string& name) {
    if (!startsWith(name, kFresh)) return false;
    const std::string rest = name.substr(strlen(kFresh));
    const auto pid = numberIn(rest.substr(0, rest.find('-')), 1, INT_MAX);
    return pid && kill(static_cast<pid_t>(*pid), 0) < 0 && errno == ESRCH;
}

}  // namespace

std::optional<std::string> Properties::get(const std::string& key) const {
    if (!isKey(key)) return std::nullopt;
    // O_NONBLOCK: a FIFO of that name does not make its reader wait.
    Fd fd(open(path(key).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (fstat(fd.get(), &status) < 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return readAll(fd.get(), kMaxValueBytes);
}

bool Properties::set(const std::string& key, const std::string& value) {
    if (!isKey(key)) return refuse(key, "invalid property name");
    if (value.size() > kMaxValueBytes) return refuse(key, "property value too long");
    if (value.find('\0') != value.npos) return refuse(key, "property value has a NUL");
    if (key == "ctl.start") {
        return mServices.start(
            value, [this, value](const char* state) { set(kServiceState + value, state); });
    }
    if (startsWith(key, "ctl.")) return refuse(key, "unknown control message");
    return store(key, value) || refuse(key, strerror(errno));
}

bool Properties::refuse(const std::string& key, const char* why) {
    mLog.write(kError, "init",
               "Unable to set property '" + key.substr(0, kMaxKeyBytes) + "': " + why);
    return false;
}

// Writes the value to another file and renames that once whole. A read-only property is linked
// instead, which fails when it exists.
bool Properties::store(const std::string& key, const std::string& value) {
    static std::atomic<unsigned> count{0};
    const std::string fresh =
        path(kFresh + std::to_string(getpid()) + "-" + std::to_string(++count));
    if (!writeFile(fresh, value)) return false;
    const bool once = startsWith(key, "ro.");
    const bool done = (once ? link : rename)(fresh.c_str(), path(key).c_str()) == 0;
    const int savedErrno = errno;
    if (once || !done) unlink(fresh.c_str());
    errno = savedErrno;
    return done;
}

std::vector<std::string> Properties::names() const {
    std::vector<std::string> found;
    std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(mDirectory.c_str()), closedir);
    while (const dirent* entry = directory ? readdir(directory.get()) : nullptr)
        found.emplace_back(entry->d_name);
    return found;
}

std::map<std::string, std::string> Properties::all() const {
    std::map<std::string, std::string> found;
    for (const std::string& name : names()) {
        if (auto value = get(name)) found[name] = *value;
    }
    return found;
}

void Properties::clearLeftovers() {
    for (const std::string& name : names()) {
        if (isLeftover(name)) unlink(path(name).c_str());
        if (!startsWith(name, kServiceState) || get(name) != "running") continue;
        mServices.tellIfKilled(name.substr(strlen(kServiceState)),
                               [&](const char* state) { set(name, state); });
    }
}

}  // namespace sim
