#include "sim/attributes.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <vector>

#include "sim/attribute_feed.h"
#include "sim/root.h"

namespace sim {
namespace {

int fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

// What belongs to a descriptor that was handed out: the other end of its socket, and an event that
// is readable exactly while it is ready.
struct Attributes::Open {
    std::string path;
    std::shared_ptr<const Fd> kernelEnd;
    Fd event{eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)};
    bool ready = true;
    bool gone = false;
    int polling = 0;

    void makeReady() {
        ready = true;
        eventfd_write(event.get(), 1);
    }
    void consume() {
        eventfd_t count;
        eventfd_read(event.get(), &count);
        ready = false;
    }
};

void Attributes::set(const std::string& path, Content content) {
    Lock lock(mMutex);
    mAttributes[path.substr(1)].content = std::move(content);
}

void Attributes::setSize(const std::string& path, off_t size) {
    Lock lock(mMutex);
    mAttributes[path.substr(1)].size = size;
}

void Attributes::notify(const std::string& path) {
    Lock lock(mMutex);
    makeReady(path.substr(1), false);
}

void Attributes::remove(const std::string& path) {
    Lock lock(mMutex);
    mAttributes[path.substr(1)].content = nullptr;
    makeReady(path.substr(1), true);
}

void Attributes::setFaults(const std::string& path, Faults faults) {
    Lock lock(mMutex);
    faults.readBytes = std::clamp<size_t>(faults.readBytes, 1, kReadBytes);
    mAttributes[path.substr(1)].faults = std::move(faults);
}

void Attributes::makeReady(const std::string& path, bool gone) {
    for (const auto& [key, open] : mOpen) {
        if (open->path != path) continue;
        if (gone) shutdown(open->kernelEnd->get(), SHUT_WR);
        open->gone |= gone;
        open->makeReady();
    }
    mChanged.notifyAll();
}

std::optional<int> Attributes::open(const char* path, int flags) {
    const std::string name = keyOf(path);
    AttributeFeed feed;
    Fd fd;
    {
        Lock lock(mMutex);
        Attribute* attribute = find(name);
        if (attribute == nullptr) return std::nullopt;
        if (attribute->content == nullptr) return fail(ENOENT);
        ++attribute->opens;
        if (attribute->faults.openError != 0) return fail(attribute->faults.openError);
        if ((flags & O_ACCMODE) != O_RDONLY) return fail(EACCES);
        dropClosed();
        fd = Fd(makeOpen(name, *attribute, feed));
    }
    if (fd.valid() && !startFeed(std::move(feed))) return fail(ENOMEM);
    return fd.release();
}

int Attributes::makeOpen(const std::string& path, const Attribute& attribute, AttributeFeed& feed) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) < 0) return -1;
    Fd processEnd(ends[0]);
    auto open = std::make_shared<Open>();
    open->path = path;
    open->kernelEnd = std::make_shared<const Fd>(ends[1]);
    if (!open->event.valid()) return -1;
    feed = {open->kernelEnd, attribute.content, attribute.faults};
    struct ::stat status {};
    fstat(ends[0], &status);
    mOpen[{status.st_dev, status.st_ino}] = std::move(open);
    return processEnd.release();
}

// Nothing tells when a descriptor is closed but its socket's other end.
void Attributes::dropClosed() {
    for (auto open = mOpen.begin(); open != mOpen.end();) {
        pollfd end = {open->second->kernelEnd->get(), 0, 0};
        const bool closed = ::poll(&end, 1, 0) > 0 && (end.revents & POLLHUP) != 0;
        open = closed ? mOpen.erase(open) : std::next(open);
    }
}

std::optional<FILE*> Attributes::fopen(const char* path, const char* mode) {
    const bool reads = mode[0] == 'r' && strchr(mode, '+') == nullptr;
    const std::optional<int> opened = open(path, reads ? O_RDONLY : O_RDWR);
    if (!opened) return std::nullopt;
    Fd fd(*opened);
    FILE* file = fd.valid() ? fdopen(fd.get(), mode) : nullptr;
    if (file != nullptr) fd.release();
    return file;
}

std::optional<int> Attributes::stat(const char* path, struct ::stat* status) {
    const std::string name = keyOf(path);
    Lock lock(mMutex);
    const Attribute* attribute = find(name);
    if (attribute == nullptr) return std::nullopt;
    if (attribute->content == nullptr) return fail(ENOENT);
    *status = {};
    status->st_mode = S_IFREG | 0444;
    status->st_nlink = 1;
    status->st_size = attribute->size;
    status->st_blksize = kReadBytes;
    return 0;
}

std::optional<ssize_t> Attributes::pread(int fd, void* buffer, size_t size, off_t offset) {
    Lock lock(mMutex);
    const std::shared_ptr<Open> open = findOpen(fd);
    if (open == nullptr) return std::nullopt;
    if (open->gone) return fail(ENODEV);
    if (offset < 0) return fail(EINVAL);
    if (offset == 0) open->consume();
    mChanged.notifyAll();
    const Attribute& attribute = *find(open->path);
    if (attribute.faults.readError != 0) return fail(attribute.faults.readError);
    const std::string& text = *attribute.content;
    const size_t start = std::min<size_t>(static_cast<size_t>(offset), text.size());
    return static_cast<ssize_t>(
        text.copy(static_cast<char*>(buffer), std::min(size, attribute.faults.readBytes), start));
}

std::optional<int> Attributes::poll(pollfd* fds, nfds_t count, int timeoutMillis) {
    std::vector<pollfd> real(fds, fds + count);
    std::vector<std::shared_ptr<Open>> open(count);
    {
        Lock lock(mMutex);
        for (nfds_t i = 0; i < count; ++i) {
            open[i] = findOpen(fds[i].fd);
            if (open[i] == nullptr) continue;
            if (int error = find(open[i]->path)->faults.pollError) return fail(error);
            real[i] = {open[i]->event.get(), POLLIN, 0};
        }
        if (std::count(open.begin(), open.end(), nullptr) == static_cast<ptrdiff_t>(count))
            return std::nullopt;
        for (const auto& polled : open) {
            if (polled != nullptr) ++polled->polling;
        }
        ++mPolls;
        mChanged.notifyAll();
    }
    const int ready = ::poll(real.data(), count, timeoutMillis);
    const int savedErrno = errno;
    Lock lock(mMutex);
    for (nfds_t i = 0; i < count; ++i) {
        fds[i].revents = real[i].revents;
        if (open[i] == nullptr) continue;
        --open[i]->polling;
        if (real[i].revents != 0)
            fds[i].revents = static_cast<short>((fds[i].events & POLLPRI) | POLLERR);
    }
    errno = savedErrno;
    return ready;
}

int Attributes::polls() const {
    Lock lock(mMutex);
    return mPolls;
}

int Attributes::opens(const std::string& path) const {
    Lock lock(mMutex);
    auto found = mAttributes.find(path.substr(1));
    return found == mAttributes.end() ? 0 : found->second.opens;
}

bool Attributes::waitIdle(std::chrono::seconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    Lock lock(mMutex);
    while (!isIdle()) {
        if (!mChanged.waitUntil(mMutex, deadline)) return isIdle();
    }
    return true;
}

bool Attributes::isIdle() const {
    bool polling = false;
    for (const auto& [key, open] : mOpen) {
        if (open->polling == 0) continue;
        if (open->ready) return false;
        polling = true;
    }
    return polling;
}

// From the root, without "." and ".."; empty for a path that leads nowhere.
std::string Attributes::keyOf(std::string_view path) const {
    Root::Place place;
    return mRoot.resolve(path, place) == 0 && !place.directory ? place.path : "";
}

Attributes::Attribute* Attributes::find(const std::string& path) {
    auto found = mAttributes.find(path);
    return found == mAttributes.end() ? nullptr : &found->second;
}

std::shared_ptr<Attributes::Open> Attributes::findOpen(int fd) {
    struct ::stat status {};
    if (mOpen.empty() || fstat(fd, &status) < 0) return nullptr;
    auto found = mOpen.find({status.st_dev, status.st_ino});
    return found == mOpen.end() ? nullptr : found->second;
}

}  // namespace sim
