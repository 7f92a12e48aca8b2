#pragma once

#include <binder/Binder.h>
#include <binder/transport/io_loop.h>
#include <sim/fd.h>
#include <sys/socket.h>
#include <utils/Mutex.h>

#include <memory>
#include <string>

namespace android::transport {

class Process;

// Whether we talk to that process: it runs as our user or as root. Else a log line.
bool mayTalkTo(const ucred& peer, const std::string& name);

// The listening socket of one published object; makes a connection of whoever comes.
//
// Threads: open() and close() from any thread.
// Errors: when descriptors run out it stops listening, with one log line until everybody
//   is in, and tries again when a connection ends or a second has passed; who came meanwhile
//   waits in the kernel. When the process has as many connections as it may, see
//   AcceptedConnections, who comes is hung up on, with one log line until somebody gets in.
class Listener : public IoSource, public std::enable_shared_from_this<Listener> {
  public:
    Listener(Process& process, sim::Fd socket, std::string name, sp<BBinder> root);

    bool open() EXCLUDES(mLock);
    // Lets go of the object on the calling thread.
    void close() EXCLUDES(mLock);

    void onReady(uint32_t events) override EXCLUDES(mLock);
    void onRested() override EXCLUDES(mLock);

  private:
    sim::Fd acceptOne(int* error) EXCLUDES(mLock);
    void welcome(sim::Fd socket) EXCLUDES(mLock);
    void rest(int error) EXCLUDES(mLock);
    void listenForLocked(uint32_t interest) REQUIRES(mLock);

    Process& mProcess;
    const std::string mName;
    // The loop's thread only.
    bool mStarved = false;
    bool mFull = false;

    Mutex mLock;
    sp<BBinder> mRoot GUARDED_BY(mLock);
    sim::Fd mSocket GUARDED_BY(mLock);
    uint64_t mWatch GUARDED_BY(mLock) = 0;
    uint32_t mInterest GUARDED_BY(mLock) = 0;
};

}  // namespace android::transport
