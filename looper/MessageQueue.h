#pragma once

#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <cstddef>
#include <memory>

#include "looper/EnvelopePool.h"

namespace android {

// A looper's pending messages in the order they fall due, equal times in the order they were sent.
//
// The order is kept in a flat array of small keys, with room at both ends: taking the first moves
// nothing, inserting moves the keys on the shorter side. The messages themselves lie still in the
// pool, where each is copied to once and handed out from.
//
// Invariants: keys ascend by due time; every key's envelope is in use and in no other key; an
//   envelope that was taken stays in use until it is given back, whatever is removed meanwhile.
// Threads: none of its own; the looper's lock covers it.
class MessageQueue {
  public:
    MessageQueue() = default;
    ~MessageQueue();
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    bool isEmpty() const { return mHead == mTail; }
    size_t size() const { return mTail - mHead; }

    // Behind every message that is due at the same time or earlier. True when it is the new first.
    bool insert(nsecs_t uptime, const sp<PeltoMessageHandler>& handler,
                const PeltoMessage& message);

    // When the first message is due; the queue is not empty.
    nsecs_t firstUptime() const { return mKeys[mHead].uptime; }
    // Takes the first message out of the order. It stays the caller's until given back.
    MessageEnvelope* takeFirst();
    // With its handler reference dropped.
    void giveBack(MessageEnvelope* envelope);

    void remove(const sp<PeltoMessageHandler>& handler);
    void remove(const sp<PeltoMessageHandler>& handler, int32_t what);

    // Heap bytes held for keys and envelopes.
    size_t footprint() const;

  private:
    struct Key {
        nsecs_t uptime;
        MessageEnvelope* envelope;
    };

    size_t placeFor(nsecs_t uptime) const;
    Key* openGapAt(size_t place);
    void makeRoom();
    void moveTo(size_t capacity, size_t head);
    void settleWhenEmpty();
    template <typename Wanted>
    void removeIf(Wanted wanted);

    // mKeys[mHead, mTail) are the pending messages.
    std::unique_ptr<Key[]> mKeys;
    size_t mCapacity = 0;
    size_t mHead = 0;
    size_t mTail = 0;
    EnvelopePool mPool;
};

}  // namespace android
