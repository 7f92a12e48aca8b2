#pragma once

#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "looper/EnvelopePool.h"
#include "looper/ShortLock.h"

namespace android {

// A batch of due messages that the looper's thread delivers without taking the lock for each. A
// message belongs to its queue until it is claimed: removing messages, or inserting an earlier one,
// revokes the lease and puts unclaimed messages back into the queue. A message that is due when it
// is posted joins the lease in force, unless others wait before it.
//
// Threads: claim() and claimSoon() on the looper's thread without the lock; the queue
//   calls the rest under the looper's lock.
class Lease {
  public:
    // The next message, the caller's until the lease is settled; null when none is left or the
    // lease is revoked.
    MessageEnvelope* claim() {
        uint32_t claimed = mClaimed.load(std::memory_order_relaxed);
        uint32_t granted;
        do {
            granted = mGranted.load(std::memory_order_acquire);
            if (claimed >= granted) return nullptr;
        } while (!mClaimed.compare_exchange_weak(claimed, claimed + 1, std::memory_order_acq_rel));
        // Loads the next message into the cache while this one's handler runs.
        if (claimed + 1 < granted) __builtin_prefetch(mEnvelopes[claimed + 1]);
        return mEnvelopes[claimed];
    }

    // As claim(), but spins a little for a message to join when none is left: under load that is
    // faster than to sleep and be woken.
    MessageEnvelope* claimSoon() {
        for (int tries = kMaxTries; tries > 0; --tries) {
            MessageEnvelope* const envelope = claim();
            if (envelope != nullptr || isOver()) return envelope;
            pauseBriefly();
        }
        return nullptr;
    }

  private:
    friend class MessageQueue;
    static constexpr uint32_t kMaxMessages = 32;
    static constexpr int kMaxTries = 50;
    static constexpr uint32_t kRevoked = 0x80000000;  // above every count

    // No message can follow the claimed ones: the lease is revoked, or full and all claimed.
    bool isOver() const { return mClaimed.load(std::memory_order_relaxed) >= kMaxMessages; }
    bool isFull() const { return mGranted.load(std::memory_order_relaxed) == kMaxMessages; }
    // Adds a message; the lease must not be full.
    void add(MessageEnvelope* envelope) {
        const uint32_t granted = mGranted.load(std::memory_order_relaxed);
        mEnvelopes[granted] = envelope;
        mLastUptime = envelope->uptime;
        mGranted.store(granted + 1, std::memory_order_release);
    }
    uint32_t claimed() const { return mClaimed.load(std::memory_order_relaxed) & ~kRevoked; }

    std::atomic<uint32_t> mClaimed{0};  // how many; with kRevoked set once revoked
    std::atomic<uint32_t> mGranted{0};
    int64_t mLastUptime = 0;
    MessageEnvelope* mEnvelopes[kMaxMessages];
};

// A looper's pending messages in the order they fall due, equal times in the order they were sent.
//
// A flat array of small keys, with room at both ends, keeps the order: taking the first moves
// nothing, inserting moves the keys on the shorter side. The messages themselves do not move: each
// is copied into the pool once and handed out from there.
//
// Invariants: keys ascend by due time; every key's envelope is in use and in no other key; no
//   waiting message is due before one of the lease in force; a claimed envelope stays in use until
//   its lease is settled, regardless of removals.
// Threads: not synchronised; the looper's lock guards it.
class MessageQueue {
  public:
    MessageQueue() = default;
    ~MessageQueue();
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    // Inserts after every message that is due at the same time or earlier. One that is due by
    // `now`, the latest known reading of the clock, may join the lease in force; one that is due
    // before a leased message revokes it. True when it became the first unleased message, so that a
    // sleeping looper must be woken.
    bool insert(int64_t uptime, int64_t now, const sp<PeltoMessageHandler>& handler,
                const PeltoMessage& message);
    void remove(const sp<PeltoMessageHandler>& handler);
    void remove(const sp<PeltoMessageHandler>& handler, int32_t what);

    // Both ignore leased messages; call revokeLease() first where a lease may be in force.
    bool isEmpty() const { return mHead == mTail; }
    size_t size() const { return mTail - mHead; }
    // When the first message is due; the queue is not empty.
    int64_t firstUptime() const { return mKeys[mHead].uptime; }

    // Leases the messages that are due by `now`. No other lease is in force.
    void grant(int64_t now, Lease* lease);
    // Takes back the unclaimed messages of the lease in force, if any.
    void revokeLease();
    // Ends the lease and frees the claimed messages; the caller has dropped their handler
    // references.
    void settle(Lease* lease);

    // Frees memory that a burst of messages left unused; to be called when no message is due.
    void shrink();

  private:
    struct Key {
        int64_t uptime;
        MessageEnvelope* envelope;
    };

    bool joinsLease(int64_t uptime, int64_t now) const;
    size_t placeFor(int64_t uptime) const;
    void insertKey(size_t place, const Key& key);
    void makeRoom();
    void placeKeys(size_t capacity);
    void rewindWhenEmpty();
    template <typename Wanted>
    void removeIf(Wanted wanted);

    // mKeys[mHead, mTail) are the pending messages.
    std::unique_ptr<Key[]> mKeys;
    size_t mCapacity = 0;
    size_t mHead = 0;
    size_t mTail = 0;
    Lease* mLease = nullptr;  // the one in force
    EnvelopePool mPool;
};

}  // namespace android
