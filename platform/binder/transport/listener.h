#pragma once

#include <binder/Binder.h>
#include <binder/transport/io_loop.h>
#include <sim/base/fd.h>
#include <sys/socket.h>
#include <utils/Mutex.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace android::transport {

class Connection;
class Process;

// Whether `peer` runs as our user or as root; if not, logs that it is refused at `name`.
bool mayTalkTo(const ucred& peer, const std::string& name);

// The connections that this process has accepted under all its names: at most kMaxConnections and
// at most a quarter of its descriptors, so that clients leave descriptors for its other work and
// silent ones keep nobody out.
//
// Threads: the loop's only.
class AcceptedConnections {
  public:
    static constexpr size_t kMaxConnections = 256;
    static constexpr int64_t kIdleNanos = 60'000'000'000;  // on the phone's clock

    // When full, closes the oldest connection without a handshake, else the one that has been idle
    // longest if it has been so for kIdleNanos; false when there is none.
    bool makeRoom();
    void add(const std::shared_ptr<Connection>& connection) { mConnections.push_back(connection); }

  private:
    void forgetEnded();
    bool endSilent();
    bool endIdle();

    std::vector<std::weak_ptr<Connection>> mConnections;  // oldest first; some have ended
};

// The listening socket of one published object; accepts its connections.
//
// Threads: open() and close() from any thread.
// Errors: without free descriptors it backs off until a connection ends or a second has passed,
//   while new clients wait in the kernel; logged once until all of them are accepted. When every
//   place in AcceptedConnections is taken, a new client is told so and disconnected; logged once
//   until one is accepted.
class Listener : public IoSource, public std::enable_shared_from_this<Listener> {
  public:
    Listener(Process& process, sim::Fd socket, std::string name, sp<BBinder> root);

    bool open() EXCLUDES(mLock);
    // Stops listening; releases the object on the calling thread.
    void close() EXCLUDES(mLock);

    void onReady(uint32_t events) override EXCLUDES(mLock);
    void onRetry() override EXCLUDES(mLock);

  private:
    sim::Fd acceptOne(int* error) EXCLUDES(mLock);
    void welcome(sim::Fd socket) EXCLUDES(mLock);
    void backOff(int error) EXCLUDES(mLock);
    void listenForLocked(uint32_t interest) REQUIRES(mLock);

    Process& mProcess;
    const std::string mName;
    // The loop's thread only.
    bool mBackedOff = false;
    bool mFull = false;

    Mutex mLock;
    sp<BBinder> mRoot GUARDED_BY(mLock);
    sim::Fd mSocket GUARDED_BY(mLock);
    uint64_t mWatch GUARDED_BY(mLock) = 0;
    uint32_t mInterest GUARDED_BY(mLock) = 0;
};

}  // namespace android::transport
