#include "sim/kernel/sockets.h"

#include <errno.h>

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

}  // namespace sim
