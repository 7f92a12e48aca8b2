#include "sim/kernel/sysfs_attributes.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <pthread.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

#include "sim/base/root.h"

namespace sim {
namespace {

int fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

// An open descriptor of an attribute: the other end of its socket, and an event that is readable
// exactly while the descriptor is ready.
struct Attributes::Open {
    std::string path;
    int fd = -1;   // the reader's end
    Key key;       // identifies that end, should its number be reused
    Fd kernelEnd;  // invalid when the device has gone
    Fd event{eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)};
    bool ready = true;
    bool gone = false;
    bool binary = false;
    bool ended = false;  // nothing more is sent: the reader gets EOF
    size_t sent = 0;
    int polling = 0;

    static Key keyOf(int fd) {
        struct ::stat status {};
        return fstat(fd, &status) == 0 ? Key(status.st_dev, status.st_ino) : Key();
    }
    void makeReady() {
        ready = true;
        eventfd_write(event.get(), 1);
    }
    void consume() {
        eventfd_t count;
        eventfd_read(event.get(), &count);
        ready = false;
    }
    // False when the socket takes no more, or the reader has closed.
    bool send(std::string_view block) {
        constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
        if (::send(kernelEnd.get(), block.data(), block.size(), kFlags) < 0) return false;
        sent += block.size();
        return true;
    }
    void end() {
        ended = true;
        shutdown(kernelEnd.get(), SHUT_WR);
    }
    // SIOCOUTQ can still report one byte while the kernel frees a block just read.
    bool hasUnread() const {
        int bytes = 0;
        return ioctl(kernelEnd.get(), SIOCOUTQ, &bytes) == 0 && bytes > 1;
    }
    bool closedByReader() const {
        if (kernelEnd.valid()) {
            pollfd end = {kernelEnd.get(), 0, 0};
            return ::poll(&end, 1, 0) > 0 && (end.revents & POLLHUP) != 0;
        }
        // A vanished device: closed when the number stands for no file or for another one.
        char file[64] = "";
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        return readlink(link.c_str(), file, sizeof(file) - 1) < 0 ||
               file != "socket:[" + std::to_string(key.second) + ']';
    }
    // Takes back the blocks that the reader has not read, through a copy of its descriptor.
    void takeBack() {
        const Fd reader(fcntl(fd, F_DUPFD_CLOEXEC, 0));
        if (!reader.valid() || keyOf(reader.get()) != key) return;
        char block[kMaxReadBytes];
        ssize_t got;
        while ((got = recv(reader.get(), block, sizeof(block), MSG_DONTWAIT)) > 0)
            sent -= static_cast<size_t>(got);
    }
};

Attributes::Attributes(const Root& root) : mRoot(root), mFeeder(epoll_create1(EPOLL_CLOEXEC)) {}

void Attributes::set(const std::string& path, Content content) {
    Lock lock(mMutex);
    mAttributes[path.substr(1)].content = std::move(content);
    for (const auto& [key, open] : mOpen) {
        if (open->path != path.substr(1) || !open->binary || open->gone || open->ended) continue;
        open->takeBack();  // the feeder goes on with the new content
    }
}

void Attributes::setSize(const std::string& path, off_t size) {
    Lock lock(mMutex);
    mAttributes[path.substr(1)].size = size;
}

void Attributes::notify(const std::string& path) {
    Lock lock(mMutex);
    for (const auto& [key, open] : mOpen) {
        if (open->path == path.substr(1)) open->makeReady();
    }
    mChanged.notifyAll();
}

void Attributes::remove(std::initializer_list<const char*> paths) {
    Lock lock(mMutex);
    for (const char* path : paths) remove(std::string(path + 1));
    mChanged.notifyAll();
}

// Closing kernelEnd, where the byte that makeOpen() sent is unread, fails the reader's next read.
void Attributes::remove(const std::string& path) {
    mAttributes[path].content = nullptr;
    for (const auto& [key, open] : mOpen) {
        if (open->path != path) continue;
        open->gone = true;
        open->takeBack();
        open->kernelEnd = Fd();
        open->makeReady();
    }
}

void Attributes::setFaults(const std::string& path, Faults faults) {
    Lock lock(mMutex);
    faults.readBytes = std::clamp<size_t>(faults.readBytes, 1, kMaxReadBytes);
    mAttributes[path.substr(1)].faults = std::move(faults);
}

std::optional<int> Attributes::open(const char* path, int flags) {
    const std::string name = keyOf(path);
    Lock lock(mMutex);
    Attribute* attribute = find(name);
    if (attribute == nullptr) return std::nullopt;
    if (attribute->content == nullptr) return fail(ENOENT);
    ++attribute->opens;
    if (attribute->faults.openError != 0) return fail(attribute->faults.openError);
    if ((flags & O_ACCMODE) != O_RDONLY) return fail(EACCES);
    dropClosed();
    return makeOpen(name, *attribute);
}

int Attributes::makeOpen(const std::string& path, const Attribute& attribute) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) < 0) return -1;
    Fd processEnd(ends[0]);
    auto open = std::make_shared<Open>();
    open->path = path;
    open->fd = processEnd.get();
    open->key = Open::keyOf(processEnd.get());
    open->kernelEnd = Fd(ends[1]);
    open->binary = attribute.size == 0;
    if (!open->event.valid() || ::send(processEnd.get(), "", 1, 0) != 1) return -1;
    const bool empty = attribute.content->empty() || attribute.faults.readError != 0;
    if (open->binary && !empty) {
        epoll_event event{EPOLLOUT | EPOLLET, {}};
        event.data.u64 = open->key.second;
        if (!startFeeder() ||
            epoll_ctl(mFeeder.get(), EPOLL_CTL_ADD, open->kernelEnd.get(), &event) < 0)
            return fail(ENOMEM);
    } else {
        const std::string_view text = *attribute.content;
        while (!empty && open->sent < text.size() &&
               open->send(text.substr(open->sent, attribute.faults.readBytes))) {
        }
        open->end();
    }
    mOpen[open->key] = std::move(open);
    return processEnd.release();
}

// Forgets the descriptors that their readers have closed.
void Attributes::dropClosed() {
    for (auto open = mOpen.begin(); open != mOpen.end();) {
        open = open->second->closedByReader() ? mOpen.erase(open) : std::next(open);
    }
}

bool Attributes::startFeeder() try {
    if (!mFeeder.valid()) return false;
    if (!mFeederRuns) std::thread([this] { runFeeder(); }).detach();
    return mFeederRuns = true;
} catch (const std::system_error&) {
    return false;
}

// The feeder's thread: sends each reader the next block once it has read the last one.
void Attributes::runFeeder() {
    pthread_setname_np(pthread_self(), "sim_attribute");
    for (;;) {
        epoll_event event;
        if (epoll_wait(mFeeder.get(), &event, 1, -1) != 1) continue;
        std::function<void()> atEnd;
        {
            Lock lock(mMutex);
            for (const auto& [key, open] : mOpen) {
                if (key.second == event.data.u64) atEnd = feed(*open);
            }
        }
        if (atEnd) atEnd();
    }
}

// Sends a block of the device's current content, unless one is unread. Returns a function to call
// once the lock is released, or null.
std::function<void()> Attributes::feed(Open& open) {
    if (open.gone || open.ended || open.hasUnread()) return nullptr;
    const Attribute& attribute = *find(open.path);
    const std::string_view text = *attribute.content;
    const size_t end = std::min(text.size(), attribute.faults.endsAfter);
    if (open.sent < end) {
        const size_t size = std::min(attribute.faults.readBytes, end - open.sent);
        if (!open.send(text.substr(open.sent, size)) && errno != EAGAIN) open.end();
        return nullptr;
    }
    if (end < text.size() && attribute.faults.atEnd) return attribute.faults.atEnd;
    open.end();
    return nullptr;
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
    status->st_blksize = kMaxReadBytes;
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

bool Attributes::waitIdle(std::chrono::seconds timeout) {
    Lock lock(mMutex);
    return mChanged.waitFor(mMutex, timeout, [this]() SIM_REQUIRES(mMutex) { return isIdle(); });
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

// The path from the root, without "." and ".."; empty for one that leads nowhere.
std::string Attributes::keyOf(std::string_view path) const {
    Root::Place place;
    return mRoot.resolve(path, place) == 0 && !place.directory ? place.path : "";
}

Attributes::Attribute* Attributes::find(const std::string& path) {
    auto found = mAttributes.find(path);
    return found == mAttributes.end() ? nullptr : &found->second;
}

std::shared_ptr<Attributes::Open> Attributes::findOpen(int fd) {
    if (mOpen.empty()) return nullptr;
    auto found = mOpen.find(Open::keyOf(fd));
    return found == mOpen.end() ? nullptr : found->second;
}

}  // namespace sim
