// Reads an archive's path, and finds archives on a phone.
#include "client/archives.h"

#include <sim/base/root.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <regex>

#include "client/verb_support.h"

namespace pelto {
namespace {

constexpr std::string_view kEnding = ".tar.gz";

bool isArchiveName(std::string_view name) {
    return name.size() >= kEnding.size() && name.substr(name.size() - kEnding.size()) == kEnding;
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

void Archive::print() const {
    printf("%-7s  %-19s  %9llu bytes  %s%s%s  %s\n", kind.c_str(), time.c_str(),
           static_cast<unsigned long long>(bytes), escaped(name).c_str(),
           version.empty() ? "" : "  version ", escaped(version).c_str(), escaped(path).c_str());
}

nlohmann::ordered_json Archive::json() const {
    return {{"path", path},       {"kind", kind}, {"name", name},
            {"version", version}, {"time", time}, {"bytes", bytes}};
}

// In the expressions [^] is any character. A hash id may hold an "@", a version may not.
Archive archiveOf(const std::string& path, uint64_t bytes) {
    static const std::string kTime = "([0-9]{4}(?:-[0-9]{2}){2}_[0-9]{2}(?:-[0-9]{2}){2})";
    static const std::regex gpuForm("gpudump@(?:([^]*)@)?([^@]*)@_" + kTime);
    static const std::regex captureForm("(?:([^]*)@)?" + kTime);
    std::string stem = path.substr(path.rfind('/') + 1);
    if (isArchiveName(stem)) stem.erase(stem.size() - kEnding.size());
    std::smatch found;
    if (std::regex_match(stem, found, gpuForm))
        return {path, "gpu", found[1], found[2], found[3], bytes};
    if (std::regex_match(stem, found, captureForm))
        return {path, "capture", found[1], "", found[2], bytes};
    return {path, "other", stem, "", "", bytes};
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
            if (S_ISREG(status.st_mode) && isArchiveName(path))
                found.push_back(archiveOf(path, static_cast<uint64_t>(status.st_size)));
        }
    }
    std::sort(found.begin(), found.end(),
              [](const Archive& a, const Archive& b) { return a.path < b.path; });
    return found;
}

void refuseArchive(const std::string& path, const std::string& why) {
    throw Failure(kFailed, "archives: " + escaped(path) + ": " + escaped(why));
}

void refuseArchive(const std::string& path, int error) {
    refuseArchive(path, error == EXDEV   ? "leads out of the phone"
                        : error == ELOOP ? "a link is not followed"
                                         : strerror(error));
}

}  // namespace pelto
