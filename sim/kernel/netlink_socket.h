#pragma once

#include <string>
#include <string_view>

#include "sim/base/fd.h"
#include "sim/base/mutex.h"

namespace sim {

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
