#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace sim {
class Root;
}

namespace pelto {

// A packed archive of the phone and what its name says.
struct Archive {
    std::string path;     // the phone's
    std::string kind;     // "gpu": of the GPU monitor, "capture": of a log capture, else "other"
    std::string name;     // hash id or time stamp of the fault; the capture's name; the file's
    std::string version;  // of the phone's software; of "gpu" alone
    std::string time;     // local, as in the name; not of "other"
    uint64_t bytes = 0;
};

// What the path's last component says.
Archive archiveOf(const std::string& path, uint64_t bytes);

// The regular files below the directory whose names end in ".tar.gz", by path. Links are not
// followed; what cannot be read is passed over.
std::vector<Archive> findArchives(const sim::Root& root, const std::string& directory);

}  // namespace pelto
