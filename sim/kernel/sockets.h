#pragma once

#include <sys/socket.h>

#include <map>
#include <memory>
#include <string_view>

#include "sim/base/mutex.h"

namespace sim {

// One address family of the phone's kernel.
class SocketFamily {
  public:
    virtual ~SocketFamily() = default;
    // As the C function of that name, for a socket of this family.
    virtual int socket(int type, int protocol) = 0;
    virtual int bind(int fd, const sockaddr* address, socklen_t length) = 0;
    virtual ssize_t sendto(int fd, std::string_view bytes, int flags, const sockaddr* address,
                           socklen_t length) = 0;
    // Takes the error that the next receive of that socket reports; 0 for none, or when the
    // socket is of another family.
    virtual int takeError(int fd) = 0;
};

// The address families that the phone's kernel offers; none but those added here, so that no
// socket of the product ever reaches the workstation's network.
// Threads: any. A family is never taken away.
class Sockets {
  public:
    void add(int domain, std::unique_ptr<SocketFamily> family) SIM_EXCLUDES(mMutex);

    // -1 and EAFNOSUPPORT where the phone has no such family.
    int socket(int domain, int type, int protocol) SIM_EXCLUDES(mMutex);
    int bind(int fd, const sockaddr* address, socklen_t length) SIM_EXCLUDES(mMutex);
    ssize_t sendto(int fd, std::string_view bytes, int flags, const sockaddr* address,
                   socklen_t length) SIM_EXCLUDES(mMutex);
    // Comes before each receive: false with errno set when that is to fail.
    bool mayReceive(int fd) SIM_EXCLUDES(mMutex);

  private:
    // The family of the address; null with errno set where there is none.
    SocketFamily* familyOf(const sockaddr* address, socklen_t length) SIM_EXCLUDES(mMutex);
    SocketFamily* find(int domain) SIM_EXCLUDES(mMutex);

    Mutex mMutex;
    std::map<int, std::unique_ptr<SocketFamily>> mFamilies SIM_GUARDED_BY(mMutex);
};

}  // namespace sim
