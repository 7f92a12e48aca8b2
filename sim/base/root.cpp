#include "sim/base/root.h"

#include <fcntl.h>
#include <limits.h>
#include <string.h>

#include <algorithm>
#include <stdexcept>

namespace sim {
namespace {

// The state of a path walk: the components passed and the descriptor of the last directory.
class Walk {
  public:
    explicit Walk(int root) : mRoot(root) {}

    int enter(std::string_view component) {
        if (int error = descend()) return error;
        if (component != "..") {
            mLast = component;
            return 0;
        }
        if (mPassed.empty()) return EXDEV;
        mPassed.pop_back();
        return walkAgain();
    }

    int finish(Root::Place& place) {
        if (mLast.empty() && !mPassed.empty()) {
            mLast = std::move(mPassed.back());
            mPassed.pop_back();
            if (int error = walkAgain()) return error;
        }
        place.path.clear();
        for (const std::string& name : mPassed) place.path += name + '/';
        place.name = mLast.empty() ? "." : mLast;
        place.path += place.name;
        place.parent = mPassed.empty() ? Fd(fcntl(mRoot, F_DUPFD_CLOEXEC, 0)) : std::move(mFd);
        return place.parent.valid() ? 0 : errno;
    }

  private:
    // Opens the last component, which must be a directory: another component follows.
    int descend() {
        if (mLast.empty()) return 0;
        if (int error = step(mLast)) return error;
        mPassed.push_back(std::move(mLast));
        mLast.clear();
        return 0;
    }

    // Starts at the root: ".." of a directory that was moved meanwhile may lead out of the tree.
    int walkAgain() {
        mFd = Fd();
        for (const std::string& name : mPassed) {
            if (int error = step(name)) return error;
        }
        return 0;
    }

    int step(const std::string& name) {
        const int from = mFd.valid() ? mFd.get() : mRoot;
        Fd fd(openat(from, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!fd.valid()) {
            const int error = errno;
            struct stat status {};
            const bool isLink = fstatat(from, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                                S_ISLNK(status.st_mode);
            return isLink ? ELOOP : error;
        }
        mFd = std::move(fd);
        return 0;
    }

    const int mRoot;
    std::vector<std::string> mPassed;
    Fd mFd;             // the last directory passed; invalid at the root
    std::string mLast;  // the last component, not opened yet
};

int fail(int error) {
    errno = error;
    return -1;
}

// Checks a file that was opened without O_TRUNC and with O_NONBLOCK, then applies `flags`. 0 or the
// errno: refuses all but files and directories (a FIFO would block its reader for ever), and
// writing to a file with another name, which may lie outside the root.
int admit(int fd, int flags) {
    struct stat status {};
    if (fstat(fd, &status) < 0) return errno;
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return ENXIO;
    const bool writing = (flags & O_ACCMODE) != O_RDONLY;
    if (writing && S_ISREG(status.st_mode) && status.st_nlink > 1) return EMLINK;
    if (writing && (flags & O_TRUNC) != 0 && ftruncate(fd, 0) < 0) return errno;
    return fcntl(fd, F_SETFL, flags) < 0 ? errno : 0;
}

// The open flags of an fopen() mode, or -1.
int flagsOf(std::string_view mode) {
    if (mode.empty() || std::string_view("rwa").find(mode[0]) == std::string_view::npos) return -1;
    const bool update = mode.find('+') != mode.npos;
    int flags = update ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    if (mode[0] == 'w') flags |= O_CREAT | O_TRUNC;
    if (mode[0] == 'a') flags |= O_CREAT | O_APPEND;
    if (mode.find('x') != mode.npos) flags |= O_EXCL;
    if (mode.find('e') != mode.npos) flags |= O_CLOEXEC;
    return flags;
}

}  // namespace

Root::Root(const std::string& directory)
    : mDirectory(directory),
      mFd(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
    if (!mFd.valid()) throw std::runtime_error(directory + ": " + strerror(errno));
}

int Root::resolve(std::string_view path, Place& place) const {
    if (path.empty()) return ENOENT;
    if (path.size() >= PATH_MAX) return ENAMETOOLONG;
    if (path.find('\0') != path.npos) return EINVAL;
    Walk walk(mFd.get());
    place.directory = path.back() == '/';
    for (size_t end = 0; !path.empty(); path.remove_prefix(std::min(end + 1, path.size()))) {
        end = path.find('/');
        const std::string_view component = path.substr(0, end);
        if (end == path.npos) end = path.size();
        if (component == "." && end == path.size()) place.directory = true;
        if (component.empty() || component == ".") continue;
        if (int error = walk.enter(component)) return error;
    }
    return walk.finish(place);
}

int Root::open(const char* path, int flags, mode_t mode) const {
    Place place;
    if (int error = resolve(path, place)) return fail(error);
    if (place.directory) {
        if ((flags & O_CREAT) != 0) return fail(EISDIR);
        flags |= O_DIRECTORY;
    }
    const int taken = (flags & ~O_TRUNC) | O_NOFOLLOW | O_NONBLOCK;
    Fd fd(openat(place.parent.get(), place.name.c_str(), taken, mode));
    if (!fd.valid()) return -1;
    if (int error = admit(fd.get(), flags)) return fail(error);
    if (diskFull() && (flags & O_ACCMODE) != O_RDONLY)
        fd = Fd(::open("/dev/full", (flags & O_ACCMODE) | O_CLOEXEC));
    return fd.release();
}

FILE* Root::fopen(const char* path, const char* mode) const {
    const int flags = flagsOf(mode);
    if (flags < 0) {
        errno = EINVAL;
        return nullptr;
    }
    Fd fd(open(path, flags, 0666));
    FILE* file = fd.valid() ? fdopen(fd.get(), mode) : nullptr;
    if (file != nullptr) fd.release();
    return file;
}

DIR* Root::opendir(const char* path) const {
    Fd fd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
    DIR* directory = fd.valid() ? fdopendir(fd.get()) : nullptr;
    if (directory != nullptr) fd.release();
    return directory;
}

int Root::stat(const char* path, struct stat* status) const {
    Place place;
    if (int error = resolve(path, place)) return fail(error);
    if (fstatat(place.parent.get(), place.name.c_str(), status, AT_SYMLINK_NOFOLLOW) < 0) return -1;
    if (S_ISLNK(status->st_mode)) return fail(ELOOP);
    return place.directory && !S_ISDIR(status->st_mode) ? fail(ENOTDIR) : 0;
}

int Root::mkdir(const char* path, mode_t mode) const {
    Place place;
    if (int error = resolve(path, place)) return fail(error);
    if (diskFull()) return fail(ENOSPC);
    return mkdirat(place.parent.get(), place.name.c_str(), mode);
}

int Root::remove(const char* path) const {
    Place place;
    if (int error = resolve(path, place)) return fail(error);
    const char* name = place.name.c_str();
    if (!place.directory) {
        if (unlinkat(place.parent.get(), name, 0) == 0) return 0;
        if (errno != EISDIR && errno != EPERM) return -1;
    }
    return unlinkat(place.parent.get(), name, AT_REMOVEDIR);
}

int Root::rename(const char* from, const char* to) const {
    Place old, fresh;
    if (int error = resolve(from, old)) return fail(error);
    if (int error = resolve(to, fresh)) return fail(error);
    return renameat(old.parent.get(), old.name.c_str(), fresh.parent.get(), fresh.name.c_str());
}

}  // namespace sim
