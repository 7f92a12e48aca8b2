#pragma once

#include <dirent.h>
#include <stdio.h>
#include <sys/stat.h>

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/fd.h"

namespace sim {

// The phone's file tree, and the one function by which every phone path is mapped into it.
//
// A path is walked one component at a time from descriptor to descriptor; no link is followed and
// ".." never leads out. A call by the parent's descriptor and the last name therefore stays in the
// tree, even while other processes change it. A relative path starts at the phone's "/".
// Threads: any.
class Root {
  public:
    // The place a path leads to. `name` is "." for the root itself, and need not exist.
    struct Place {
        Fd parent;
        std::string name;
        std::string path;        // from the root, without "." and "..": "data/x", "." for the root
        bool directory = false;  // the path ended in "/" or "."
    };

    // Throws std::runtime_error when `directory` cannot be opened or is a link.
    explicit Root(const std::string& directory);

    // 0, or the errno: ENOENT (empty path or a component missing), ENOTDIR, ELOOP (a link on the
    // way, or as the last component of a path that must be a directory), EXDEV (out of the root),
    // ENAMETOOLONG. The last component itself is not examined.
    int resolve(std::string_view path, Place& place) const;

    // As the C function of that name; -1 or null and errno on failure. Besides that function's:
    // ELOOP, or ENOTDIR when a directory is asked for, for a link; ENXIO for opening a FIFO, socket
    // or device; EMLINK for opening a file of several names for writing.
    int open(const char* path, int flags, mode_t mode) const;
    FILE* fopen(const char* path, const char* mode) const;
    DIR* opendir(const char* path) const;
    int stat(const char* path, struct stat* status) const;
    int mkdir(const char* path, mode_t mode) const;
    int remove(const char* path) const;
    int rename(const char* from, const char* to) const;

    // A fault, in this process alone: making a directory, and writing to a file opened from here
    // on, fails with ENOSPC; files can still be made and removed.
    void fillDisk(bool full) { mDiskFull.store(full); }
    bool diskFull() const { return mDiskFull.load(); }

    // The tree's own descriptor (O_PATH) and absolute workstation path.
    int fd() const { return mFd.get(); }
    const std::string& directory() const { return mDirectory; }

  private:
    const std::string mDirectory;
    Fd mFd;
    std::atomic<bool> mDiskFull{false};
};

}  // namespace sim
