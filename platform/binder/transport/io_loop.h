#pragma once

#include <sim/base/fd.h>
#include <utils/Mutex.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace android::transport {

// The owner of a socket that the loop watches.
class IoSource {
  public:
    virtual ~IoSource() = default;
    // On the loop's thread, with the epoll events of the socket.
    virtual void onReady(uint32_t events) = 0;
    // On the loop's thread, after retryLater(): descriptors may be free again.
    virtual void onRetry() {}
    // Waits up to `nanos` nanoseconds until its queued bytes are sent.
    virtual void drain(int64_t /*nanos*/) {}
};

// The one thread of the process that waits for its sockets (epoll, level-triggered).
//
// Ownership: keeps a source from add() to remove(). Descriptors stay the source's.
// Threads: add(), change() and remove() from any thread; no lock is held while a source is called.
//   A source removed on the loop's own thread is not called again.
class IoLoop {
  public:
    // Returns the watch's number, 0 when the system gives no epoll instance or thread.
    uint64_t add(const std::shared_ptr<IoSource>& source, int fd, uint32_t events) EXCLUDES(mLock);
    // Never allocates: the descriptor stays in the epoll set even with an empty event mask.
    void change(uint64_t id, int fd, uint32_t before, uint32_t after);
    void remove(uint64_t id, int fd) EXCLUDES(mLock);

    // Loop's thread only: calls the source's onRetry() at the next retryNow(), at the latest a
    // second later.
    void retryLater(std::weak_ptr<IoSource> source);
    void retryNow();

    std::vector<std::shared_ptr<IoSource>> sources() EXCLUDES(mLock);

  private:
    bool startLocked() REQUIRES(mLock);
    void run();
    // How long until retryNow() is due; -1 when no source waits for it.
    int millisToRetry() const;
    std::shared_ptr<IoSource> find(uint64_t id) EXCLUDES(mLock);

    Mutex mLock;
    sim::Fd mEpoll;  // set once under the lock, before the thread and any watch
    uint64_t mLastId GUARDED_BY(mLock) = 0;
    std::unordered_map<uint64_t, std::shared_ptr<IoSource>> mSources GUARDED_BY(mLock);
    // The loop's thread only.
    std::vector<std::weak_ptr<IoSource>> mRetrying;
    std::chrono::steady_clock::time_point mRetryTime;  // of the first in mRetrying
};

}  // namespace android::transport
