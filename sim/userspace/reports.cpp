#include "sim/userspace/reports.h"

#include <dirent.h>
#include <fcntl.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <sys/inotify.h>

#include <algorithm>
#include <memory>

#include "sim/base/text.h"

namespace sim {
namespace {

constexpr char kSuffix[] = ".report";
constexpr size_t kNameOffset = 32;

constexpr struct {
    uint64_t bits;
    const char* name;
} kLogs[] = {
    {0x20, "android log"},   {0x1, "kernel log"},
    {0x208, "audio dumps"},  {0x800, "system trace"},
    {0x80, "adsp minidump"}, {uint64_t{0x20} << 32, "pcm dump or adsp text log"},
};

template <typename T>
T field(const std::string& record, size_t offset) {
    T value;
    memcpy(&value, record.data() + offset, sizeof(value));
    return value;
}

Report decode(uint64_t number, std::string record) {
    Report report;
    report.number = number;
    report.time = field<int64_t>(record, 0);
    report.id = field<uint32_t>(record, 8);
    report.logs = field<uint64_t>(record, 24);
    const char* name = record.data() + kNameOffset;
    report.name.assign(name, strnlen(name, record.size() - kNameOffset));
    report.record = std::move(record);
    return report;
}

}  // namespace

std::vector<std::string> Report::logNames() const {
    std::vector<std::string> names;
    uint64_t unnamed = logs;
    for (const auto& log : kLogs) {
        if ((logs & log.bits) != log.bits) continue;
        names.emplace_back(log.name);
        unnamed &= ~log.bits;
    }
    if (unnamed != 0) {
        char text[24];
        snprintf(text, sizeof(text), "0x%" PRIx64, unnamed);
        names.emplace_back(text);
    }
    return names;
}

std::string Report::text() const {
    char head[96];
    snprintf(head, sizeof(head), "%" PRIu64 "  %s  id 0x%08" PRIx32 "  ", number,
             localTime("%Y-%m-%d %H:%M:%S", time).c_str(), id);
    std::string line = head + (name.empty() ? "(no name)" : name) + "  ";
    const char* separator = "";
    for (const std::string& log : logNames()) {
        line += separator + log;
        separator = ", ";
    }
    if (logs == 0) line += "no logs";
    return printable(line);
}

uint64_t Reports::add(std::string_view record) {
    if (mRefused.load() || record.size() != kRecordBytes) return 0;
    const Fd directory = openDirectory(mDirectory);
    const FileLock lock(directory.get());
    if (!lock.held()) return 0;
    std::vector<uint64_t> there = numbers();
    const uint64_t number = there.empty() ? 1 : there.back() + 1;
    if (!write(number, record)) return 0;
    for (size_t i = 0; there.size() - i >= kMaxKept; ++i) unlink(path(there[i]).c_str());
    return number;
}

// Written under another name and renamed once whole.
bool Reports::write(uint64_t number, std::string_view record) const {
    const std::string fresh = freshPath();
    if (writeFile(fresh, record) && rename(fresh.c_str(), path(number).c_str()) == 0) return true;
    unlink(fresh.c_str());
    return false;
}

void Reports::clearLeftovers() {
    const Fd directory = openDirectory(mDirectory);
    const FileLock lock(directory.get());
    if (lock.held()) unlink(freshPath().c_str());
}

std::vector<uint64_t> Reports::numbers() const {
    std::vector<uint64_t> found;
    std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(mDirectory.c_str()), closedir);
    while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
        char* end = nullptr;
        const uint64_t number = strtoull(entry->d_name, &end, 10);
        // Skips files whose name is not exactly a report's, even with this suffix.
        if (strcmp(end, kSuffix) == 0 && path(number) == mDirectory + "/" + entry->d_name)
            found.push_back(number);
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<Report> Reports::after(uint64_t number) const {
    std::vector<Report> found;
    for (uint64_t candidate : numbers()) {
        if (candidate <= number) continue;
        // O_NONBLOCK: a FIFO of that name does not make its reader wait.
        Fd fd(open(path(candidate).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        std::string record = fd.valid() ? readAll(fd.get(), kRecordBytes + 1) : "";
        if (record.size() == kRecordBytes) found.push_back(decode(candidate, std::move(record)));
    }
    return found;
}

Fd Reports::watch() const {
    Fd fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (inotify_add_watch(fd.get(), mDirectory.c_str(), IN_MOVED_TO) < 0) return Fd();
    return fd;
}

std::string Reports::path(uint64_t number) const {
    char name[40];
    snprintf(name, sizeof(name), "/%08" PRIu64 "%s", number, kSuffix);
    return mDirectory + name;
}

}  // namespace sim
