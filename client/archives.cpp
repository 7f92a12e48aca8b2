#include "client/archives.h"

#include <sim/root.h>

#include <algorithm>
#include <memory>

namespace pelto {
namespace {

constexpr char kEnding[] = ".tar.gz";
constexpr char kGpuStart[] = "gpudump@";

bool endsWith(const std::string& text, const std::string& ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// "2024-03-05_14-07-09"
bool isTime(const std::string& text) {
    constexpr char kForm[] = "dddd-dd-dd_dd-dd-dd";
    if (text.size() != sizeof kForm - 1) return false;
    return std::equal(text.begin(), text.end(), kForm, [](char c, char form) {
        return form == 'd' ? c >= '0' && c <= '9' : c == form;
    });
}

// Cuts off and returns what stands behind the last "@"; all of it when there is none.
std::string takeLast(std::string& text) {
    const size_t at = text.rfind('@');
    const size_t begin = at == std::string::npos ? 0 : at + 1;
    std::string last = text.substr(begin);
    text.erase(begin == 0 ? 0 : at);
    return last;
}

std::vector<std::string> entriesOf(const sim::Root& root, const std::string& directory) {
    std::vector<std::string> paths;
    const std::unique_ptr<DIR, int (*)(DIR*)> open(root.opendir(directory.c_str()), closedir);
    while (const dirent* entry = open ? readdir(open.get()) : nullptr) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            paths.push_back(directory + (directory.back() == '/' ? "" : "/") + name);
    }
    return paths;
}

}  // namespace

// From the back, since a hash id may hold an "@".
Archive archiveOf(const std::string& path, uint64_t bytes) {
    std::string stem = path.substr(path.rfind('/') + 1);
    if (endsWith(stem, kEnding)) stem.erase(stem.size() - (sizeof kEnding - 1));
    Archive archive{path, "other", stem, "", "", bytes};
    std::string rest = stem, time = takeLast(rest);
    const bool gpu = rest.rfind(kGpuStart, 0) == 0 && !time.empty() && time[0] == '_';
    if (gpu) time.erase(0, 1);
    if (!isTime(time)) return archive;
    archive.kind = gpu ? "gpu" : "capture";
    archive.time = time;
    if (gpu) {
        archive.version = takeLast(rest);
        rest.erase(0, std::min(rest.size(), sizeof kGpuStart - 1));
    }
    archive.name = rest;
    return archive;
}

std::vector<Archive> findArchives(const sim::Root& root, const std::string& directory) {
    std::vector<Archive> found;
    std::vector<std::string> directories{directory};
    while (!directories.empty()) {
        const std::string current = std::move(directories.back());
        directories.pop_back();
        for (const std::string& path : entriesOf(root, current)) {
            struct stat status {};
            if (root.stat(path.c_str(), &status) != 0) continue;
            if (S_ISDIR(status.st_mode)) directories.push_back(path);
            if (S_ISREG(status.st_mode) && endsWith(path, kEnding))
                found.push_back(archiveOf(path, static_cast<uint64_t>(status.st_size)));
        }
    }
    std::sort(found.begin(), found.end(),
              [](const Archive& a, const Archive& b) { return a.path < b.path; });
    return found;
}

}  // namespace pelto
