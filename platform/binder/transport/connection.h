#pragma once

#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/Parcel.h>
#include <binder/transport/byte_queue.h>
#include <binder/transport/frame.h>
#include <binder/transport/io_loop.h>
#include <sim/base/fd.h>
#include <sim/base/process_id.h>
#include <sys/socket.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace android::transport {

class Process;

// One socket between a client process and a published object of another process; calls go both
// ways.
//
// Ownership: the loop keeps it while the socket is open, its proxies and waiting calls keep it
//   longer. It keeps the objects it has given out, and holds its proxies weakly.
// Threads: onReady() on the loop's thread, the rest from any. No lock is held while foreign code
//   runs: the notice thread releases objects and reports deaths.
//
// Sending never waits. Bytes that the kernel does not take at once go to mOut, and the loop sends
//   them as the other side reads. A call that does not fit into mOut fails at once with
//   FAILED_TRANSACTION and the connection stays open; a reply that does not fit ends the
//   connection, since its caller would wait for ever. An object that has lost one-way calls so is
//   told their number (LOST_CALLS_TRANSACTION) before the next call or once mOut has drained; the
//   log gets a line when the first is lost and one with the number of all when mOut has drained or
//   the connection has ended.
//
// Backpressure: reading pauses while the calls that wait for a thread exceed kPauseBacklog. The
//   other side's socket and queue then fill up, its calls fail or wait there, and nothing that was
//   read is lost. While a thread of this process waits for a reply on this connection, reading goes
//   on: calls ahead of the reply may need that thread, or a lock it holds. The backlog is then
//   bounded by kMaxBacklog. Of the calls beyond it, two-way ones are answered FAILED_TRANSACTION
//   and one-way ones dropped, as by a full queue; logged once until the backlog drains. So no two
//   processes deadlock each other, and a slow one is never disconnected.
//
// A frame that breaks the protocol ends the connection with one log line, and so does a call that
//   gets no reply in time (ProcessState::setCallTimeout()). At the end, whichever side caused it,
//   waiting and later callers get DEAD_OBJECT, or WOULD_BLOCK when the other side takes no more
//   clients (a HELLO with that status); death recipients are notified once, objects
//   given out are released; calls already read are still executed. A proxy of a dead connection
//   still uses about 1.4 KiB (64-bit), including this object without its buffers.
class Connection : public IoSource, public std::enable_shared_from_this<Connection> {
  public:
    // The most bytes in mOut once a call, or any other frame, is added.
    static constexpr size_t kMaxCallQueue = kMaxFrame;
    static constexpr size_t kMaxReplyQueue = 4 * kMaxFrame;
    static constexpr size_t kPauseBacklog = 1u << 20;
    static constexpr size_t kMaxBacklog = 8u << 20;
    // The most living proxies of the other side's objects. A call or a reply with one more fails
    // with FAILED_TRANSACTION; its objects are released at once.
    static constexpr size_t kMaxProxies = 1024;

    // `root` is the published object on the side that publishes, else null.
    Connection(Process& process, sim::Fd socket, const ucred& peer, sp<BBinder> root);

    // Makes it a dead one, refused by the other side; instead of open().
    void refuse() EXCLUDES(mLock);
    // Joins the loop and sends a HELLO; false when the loop cannot watch the socket.
    bool open() EXCLUDES(mLock);

    // The published object of the other side; null when the connection is dead, but not when it was
    // refused: its calls say so.
    sp<IBinder> root() EXCLUDES(mLock);
    status_t transact(uint32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags) EXCLUDES(mLock);
    void forgetProxy(const BpBinder* proxy) EXCLUDES(mLock);
    // The status of a call on a dead connection.
    status_t end() EXCLUDES(mLock);
    bool alive() const { return !mGone.load(std::memory_order_acquire); }
    pid_t peerPid() const { return mPeer.pid; }

    // Called by the pool: when a call starts, and with its result.
    void begun(size_t charge) EXCLUDES(mLock);
    void reply(uint64_t callId, status_t status, const Parcel& parcel) EXCLUDES(mLock);

    // Loop's thread only: ends the connection if its handshake is not done; true when it was ended.
    bool endWithoutHandshake() EXCLUDES(mLock);
    // Loop's thread only: when the last call came, if the other side waits for nothing of ours, has
    // read all and keeps no object here; else INT64_MAX.
    int64_t idleSince() EXCLUDES(mLock);
    // Loop's thread only: ends the connection if it is still idle since then; true when it was
    // ended.
    bool endIdle(int64_t since) EXCLUDES(mLock);
    // Whether it is torn down; one that is not alive() may still read what has arrived.
    bool ended() EXCLUDES(mLock);

    void onReady(uint32_t events) override EXCLUDES(mLock);
    void drain(int64_t nanos) override EXCLUDES(mLock);

  private:
    struct PendingCall {
        Condition answered;
        bool done = false;
        status_t status = DEAD_OBJECT;
        Parcel result;
    };
    struct Export {
        sp<BBinder> object;
        uint32_t count;  // how often it was sent and not released
    };
    struct Proxy {
        const BpBinder* address = nullptr;
        wp<BpBinder> proxy;
        uint32_t count = 0;  // how often it was received
    };
    struct Remains;

    // Sending.
    status_t checkSendable(const Parcel& parcel) const;
    status_t sendCallLocked(const FrameHeader& header, const Parcel& data) REQUIRES(mLock);
    void noteLostLocked(uint32_t handle) REQUIRES(mLock);
    void logLostLocked(const char* then) REQUIRES(mLock);
    void tellLostLocked() REQUIRES(mLock);
    status_t sendLocked(const FrameHeader& header, const Parcel* parcel, size_t limit)
        REQUIRES(mLock);
    ObjectEntry giveOutLocked(const Parcel::Object& object) REQUIRES(mLock);
    void writeLocked(const uint8_t* head, size_t headSize, const uint8_t* body, size_t bodySize)
        REQUIRES(mLock);
    size_t sendNowLocked(const uint8_t* head, size_t headSize, const uint8_t* body, size_t bodySize)
        REQUIRES(mLock);
    void flushLocked() REQUIRES(mLock);
    void awaitReplyLocked(uint64_t callId, PendingCall& call) REQUIRES(mLock);
    void breakLocked(const char* why) REQUIRES(mLock);
    void updateInterestLocked() REQUIRES(mLock);
    bool readingLocked() const REQUIRES(mLock);

    // Receiving. The result says what is wrong with the frame; null when nothing is.
    void receive() EXCLUDES(mLock);
    const char* consumeFrames() EXCLUDES(mLock);
    const char* take(const Frame& frame) EXCLUDES(mLock);
    const char* refused() EXCLUDES(mLock);
    const char* takeCall(const Frame& frame) EXCLUDES(mLock);
    const char* takeReply(const Frame& frame) EXCLUDES(mLock);
    const char* takeRelease(const Frame& frame) EXCLUDES(mLock);
    const char* adoptLocked(const Frame& frame, std::vector<Parcel::Object>* objects)
        REQUIRES(mLock);
    bool hasRoomForObjectLocked() REQUIRES(mLock);
    void releaseLocked(uint32_t handle, uint32_t count) REQUIRES(mLock);
    bool noteBacklogLocked(size_t charge) REQUIRES(mLock);
    sp<BBinder> localLocked(uint32_t handle) REQUIRES(mLock);
    sp<BpBinder> proxyLocked(uint32_t handle) REQUIRES(mLock);

    void logEnd(const char* why) const;
    void tearDown() EXCLUDES(mLock);
    status_t endLocked() REQUIRES(mLock);

    Process& mProcess;
    const ucred mPeer;
    std::atomic<bool> mGone{false};  // set under the lock, read anywhere

    // The loop's thread only.
    ByteQueue mIn;
    std::optional<sim::ProcessId> mGiver;  // the other side, once it has given an object
    int64_t mLastCallNanos = 0;            // when its last call came, on the phone's clock

    std::atomic<bool> mHandshakeDone{false};  // set on the loop's thread, under no lock

    Mutex mLock;
    sp<BBinder> mRoot GUARDED_BY(mLock);
    Condition mDrained;
    sim::Fd mSocket GUARDED_BY(mLock);  // invalid once torn down
    uint64_t mWatch GUARDED_BY(mLock) = 0;
    uint32_t mInterest GUARDED_BY(mLock) = 0;
    bool mBroken GUARDED_BY(mLock) = false;  // to be torn down, even with bytes left to read
    bool mClosed GUARDED_BY(mLock) = false;
    status_t mEnd GUARDED_BY(mLock) = DEAD_OBJECT;  // what calls get once it is dead
    size_t mUnanswered GUARDED_BY(mLock) = 0;       // calls taken and not replied to
    ByteQueue mOut GUARDED_BY(mLock);
    // One-way calls that did not fit into mOut: those not told yet by object, and all since mOut
    // was empty.
    std::map<uint32_t, int32_t> mLost GUARDED_BY(mLock);
    uint64_t mLostInAll GUARDED_BY(mLock) = 0;
    size_t mBacklog GUARDED_BY(mLock) = 0;
    bool mPaused GUARDED_BY(mLock) = false;
    bool mDropping GUARDED_BY(mLock) = false;
    bool mRefusing GUARDED_BY(mLock) = false;  // logged that there are too many proxies
    uint64_t mLastCall GUARDED_BY(mLock) = 0;
    std::unordered_map<uint64_t, PendingCall*> mPending GUARDED_BY(mLock);
    uint32_t mLastHandle GUARDED_BY(mLock) = 0;
    std::unordered_map<uint32_t, Export> mExports GUARDED_BY(mLock);
    std::unordered_map<const BBinder*, uint32_t> mExportHandles GUARDED_BY(mLock);
    std::unordered_map<uint32_t, Proxy> mProxies GUARDED_BY(mLock);
};

}  // namespace android::transport
