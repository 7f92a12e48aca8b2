#include "sim/kernel/sockets.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>

namespace sim {

void Sockets::add(int domain, std::unique_ptr<SocketFamily> family) {
    Lock lock(mMutex);
    mFamilies.emplace(domain, std::move(family));
}

int Sockets::socket(int domain, int type, int protocol) {
    if (SocketFamily* family = find(domain)) return family->socket(type, protocol);
    errno = EAFNOSUPPORT;
    return -1;
}

int Sockets::bind(int fd, const sockaddr* address, socklen_t length) {
    SocketFamily* family = familyOf(address, length);
    return family != nullptr ? family->bind(fd, address, length) : -1;
}

ssize_t Sockets::sendto(int fd, std::string_view bytes, int flags, const sockaddr* address,
                        socklen_t length) {
    SocketFamily* family = familyOf(address, length);
    return family != nullptr ? family->sendto(fd, bytes, flags, address, length) : -1;
}

SocketFamily* Sockets::familyOf(const sockaddr* address, socklen_t length) {
    SocketFamily* family = nullptr;
    if (address == nullptr) {
        errno = EFAULT;
    } else if (length < sizeof(sa_family_t)) {
        errno = EINVAL;
    } else {
        family = find(address->sa_family);
        if (family == nullptr) errno = EAFNOSUPPORT;
    }
    return family;
}

bool Sockets::mayReceive(int fd) {
    Lock lock(mMutex);
    for (const auto& [domain, family] : mFamilies) {
        const int error = family->takeError(fd);
        if (error == 0) continue;
        errno = error;
        return false;
    }
    return true;
}

SocketFamily* Sockets::find(int domain) {
    Lock lock(mMutex);
    auto found = mFamilies.find(domain);
    return found == mFamilies.end() ? nullptr : found->second.get();
}

NetlinkSocket::NetlinkSocket(int typeFlags) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return;
    mKernelEnd = Fd(ends[0]);
    mProcessEnd = Fd(ends[1]);
    // The flags are for the process's end alone.
    if ((typeFlags & SOCK_CLOEXEC) == 0) fcntl(ends[1], F_SETFD, 0);
    if ((typeFlags & SOCK_NONBLOCK) != 0) fcntl(ends[1], F_SETFL, O_NONBLOCK);
}

bool NetlinkSocket::receive(std::string* datagram) {
    constexpr size_t kMaxDatagram = 64 * 1024;
    for (;;) {
        datagram->resize(kMaxDatagram);
        const ssize_t got = recv(mKernelEnd.get(), datagram->data(), datagram->size(), 0);
        if (got < 0 && errno == EINTR) continue;
        datagram->resize(got > 0 ? static_cast<size_t>(got) : 0);
        if (got > 0) return true;
        if (got < 0 || closed()) return false;  // else the process has sent an empty datagram
    }
}

bool NetlinkSocket::closed() const {
    pollfd polled{mKernelEnd.get(), POLLRDHUP, 0};
    return poll(&polled, 1, 0) == 1 && (polled.revents & (POLLHUP | POLLRDHUP)) != 0;
}

bool NetlinkSocket::isEmpty() const {
    int unread = 0;
    return ioctl(mKernelEnd.get(), SIOCOUTQ, &unread) == 0 && unread == 0;
}

bool NetlinkSocket::push(std::string_view datagram) {
    Lock lock(mMutex);
    if (mCongested && !isEmpty()) return false;
    mCongested = false;
    if (send(mKernelEnd.get(), datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
        return true;
    if (errno == EAGAIN) {
        mCongested = true;
        mError = ENOBUFS;
    }
    return false;
}

int NetlinkSocket::takeError() {
    Lock lock(mMutex);
    return std::exchange(mError, 0);
}

}  // namespace sim
