#pragma once

#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "looper/EnvelopePool.h"
#include "looper/pause.h"

namespace android {

// The next due messages, handed to the looper's thread together so that it delivers them without
// taking the lock for each. A message is still its queue's until it is claimed: whatever removes
// messages or puts one before them revokes the lease, and what was not claimed by then is back in
// the order. A message that is due when it is posted, with none waiting before it, joins the lease
// in force.
//
// Threads: claim() and claimSoon() on the looper's thread without the lock; the rest is the
//   queue's, under it.
class Lease {
  public:
    // The next message, the caller's until the lease is settled; null when there is no other, or
    // no longer.
    MessageEnvelope* claim() {
        uint32_t claimed = mClaimed.load(std::memory_order_relaxed);
        uint32_t granted;
        do {
            granted = mGranted.load(std::memory_order_acquire);
            if (claimed >= granted) return nullptr;
        } while (!mClaimed.compare_exchange_weak(claimed, claimed + 1, std::memory_order_acq_rel));
        // The next one is on its way while this one's handler runs.
        if (claimed + 1 < granted) __builtin_prefetch(mEnvelopes[claimed + 1]);
        return mEnvelopes[claimed];
    }

    // The same, but when none is left waits a little for one to join: for a looper under load that
    // is sooner than falling asleep and being woken.
    MessageEnvelope* claimSoon() {
        for (int tries = kTries; tries > 0; --tries) {
            MessageEnvelope* const envelope = claim();
            if (envelope != nullptr || isOver()) return envelope;
            pauseBriefly();
        }
        return nullptr;
    }

  private:
    friend class MessageQueue;
    static constexpr uint32_t kMost = 32;
    static constexpr int kTries = 50;
    static constexpr uint32_t kRevoked = 0x80000000;  // above every count

    // Nothing comes after what has been claimed: the lease is revoked, or all of a full one is.
    bool isOver() const { return mClaimed.load(std::memory_order_relaxed) >= kMost; }
    bool isFull() const { return mGranted.load(std::memory_order_relaxed) == kMost; }
    // Not to a full one.
    void add(MessageEnvelope* envelope) {
        const uint32_t granted = mGranted.load(std::memory_order_relaxed);
        mEnvelopes[granted] = envelope;
        mLastUptime = envelope->uptime;
        mGranted.store(granted + 1, std::memory_order_release);
    }
    uint32_t claimed() const { return mClaimed.load(std::memory_order_relaxed) & ~kRevoked; }

    std::atomic<uint32_t> mClaimed{0};  // how many; kRevoked is added to end it
    std::atomic<uint32_t> mGranted{0};
    int64_t mLastUptime = 0;
    MessageEnvelope* mEnvelopes[kMost];
};

// A looper's pending messages in the order they fall due, equal times in the order they were sent.
//
// The order is kept in a flat array of small keys, with room at both ends: taking the first moves
// nothing, inserting moves the keys on the shorter side. The messages themselves lie still in the
// pool, where each is copied to once and handed out from.
//
// Invariants: keys ascend by due time; every key's envelope is in use and in no other key; no
//   message waits that is due before one of a lease in force; a claimed envelope stays in use until
//   its lease is settled, whatever is removed meanwhile.
// Threads: none of its own; the looper's lock covers it.
class MessageQueue {
  public:
    MessageQueue() = default;
    ~MessageQueue();
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    // Behind every message that is due at the same time or earlier. `now` is a time that has
    // passed. True when it is the first of those not leased.
    bool insert(int64_t uptime, int64_t now, const sp<PeltoMessageHandler>& handler,
                const PeltoMessage& message);
    void remove(const sp<PeltoMessageHandler>& handler);
    void remove(const sp<PeltoMessageHandler>& handler, int32_t what);

    // Both without what is leased; revokeLease() first where one may be in force.
    bool isEmpty() const { return mHead == mTail; }
    size_t size() const { return mTail - mHead; }
    // When the first message is due; the queue is not empty.
    int64_t firstUptime() const { return mKeys[mHead].uptime; }

    // Leases the messages that are due by `now`. No other lease is in force.
    void grant(int64_t now, Lease* lease);
    // Takes back what the lease in force, if there is one, has not handed out.
    void revokeLease();
    // Ends the lease and gives back what was claimed, whose handler references have been dropped.
    void settle(Lease* lease);

    // Gives back the memory of a burst; for when nothing is due any more.
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
    void resize(size_t capacity);
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
