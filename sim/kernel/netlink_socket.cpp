#include "sim/kernel/netlink_socket.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace sim {

NetlinkSocket::NetlinkSocket(int typeFlags) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return;
    mKernelEnd = Fd(ends[0]);
    mProcessEnd = Fd(ends[1]);
    // Applies the flags to the process's end only.
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
