#pragma once

#include <stdint.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sim {
class Root;
}

namespace pelto {

class Client;

// A packed archive on the phone; all but the size is taken from its path.
struct Archive {
    std::string path;     // on the phone
    std::string kind;     // "gpu" by the GPU monitor, "capture" by a log capture, else "other"
    std::string name;     // the fault's hash id or time stamp; the capture's name; the file's
    std::string version;  // of the phone's software; only of "gpu"
    std::string time;     // local, as in the file's name; not of "other"
    uint64_t bytes = 0;

    void print() const;  // one line
    nlohmann::ordered_json json() const;
};

Archive archiveOf(const std::string& path, uint64_t bytes);

// The regular files below the directory whose names end in ".tar.gz", sorted by path. Links are not
// followed; unreadable directories are skipped.
std::vector<Archive> findArchives(const sim::Root& root, const std::string& directory);

// Both throw Failure with the path and the reason, given as a text or as an errno value.
[[noreturn]] void refuseArchive(const std::string& path, const std::string& why);
[[noreturn]] void refuseArchive(const std::string& path, int error);

// Adds the verbs that read the content of archives; none in a build without libarchive.
void addArchiveReaders(CLI::App& archives, Client& client);

}  // namespace pelto
