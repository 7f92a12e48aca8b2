#pragma once

#include <sys/socket.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "sim/base/fd.h"
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
    // Takes the error that the socket's next receive reports; 0 for none, or for a socket of
    // another family.
    virtual int takeError(int fd) = 0;
};

// The address families of the phone's kernel: those added here alone, so that no socket of the
// product reaches the workstation's network.
// Threads: any. A family is never removed.
class Sockets {
  public:
    void add(int domain, std::unique_ptr<SocketFamily> family) SIM_EXCLUDES(mMutex);

    // -1 and EAFNOSUPPORT where the phone has no such family.
    int socket(int domain, int type, int protocol) SIM_EXCLUDES(mMutex);
    int bind(int fd, const sockaddr* address, socklen_t length) SIM_EXCLUDES(mMutex);
    ssize_t sendto(int fd, std::string_view bytes, int flags, const sockaddr* address,
                   socklen_t length) SIM_EXCLUDES(mMutex);
    // To be called before each receive: false with errno set when that is to fail.
    bool mayReceive(int fd) SIM_EXCLUDES(mMutex);

  private:
    // The family of the address; null with errno set where there is none.
    SocketFamily* familyOf(const sockaddr* address, socklen_t length) SIM_EXCLUDES(mMutex);
    SocketFamily* find(int domain) SIM_EXCLUDES(mMutex);

    Mutex mMutex;
    std::map<int, std::unique_ptr<SocketFamily>> mFamilies SIM_GUARDED_BY(mMutex);
};

// The kernel's end of one netlink socket: one end of a pair that keeps datagram boundaries. The
// other end is the process's and behaves as its netlink socket (sending to a netlink address
// included). The queue of unread datagrams is as long as the workstation's send buffer.
//
// Ownership: this end stays open until the process has closed its own, so that a receive there
//   never returns 0.
// Threads: any; receive() one at a time.
class NetlinkSocket {
  public:
    // The process's end is closed with the object unless takeProcessEnd() has given it away.
    // Invalid, with errno set, when no pair could be made.
    explicit NetlinkSocket(int typeFlags);
    bool valid() const { return mKernelEnd.valid(); }
    int processEnd() const { return mProcessEnd.get(); }
    int takeProcessEnd() { return mProcessEnd.release(); }

    // Waits for a datagram of the process; false once it has closed its end.
    bool receive(std::string* datagram);
    bool closed() const;

    // Queues a datagram for the process. When the queue is full the datagram is lost, as are those
    // after it until the queue has been read empty, and the next receive fails with ENOBUFS.
    bool push(std::string_view datagram) SIM_EXCLUDES(mMutex);
    int takeError() SIM_EXCLUDES(mMutex);

  private:
    bool isEmpty() const;

    Fd mKernelEnd;
    Fd mProcessEnd;
    Mutex mMutex;
    bool mCongested SIM_GUARDED_BY(mMutex) = false;
    int mError SIM_GUARDED_BY(mMutex) = 0;
};

}  // namespace sim
