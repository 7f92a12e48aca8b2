#include "looper/MessageQueue.h"

#include <algorithm>
#include <cstring>

namespace android {

namespace {
constexpr size_t kLeastCapacity = 64;
// A key array that grew beyond this is given back when the queue has run empty.
constexpr size_t kKeptCapacity = 1024;

// The library's copy, the size hidden from the compiler: what it would put in place for a record
// of this size is three times slower.
void copyMessage(PeltoMessage* to, const PeltoMessage& from) {
    size_t size = sizeof from;
    asm("" : "+r"(size));
    memcpy(to, &from, size);
}
}  // namespace

MessageQueue::~MessageQueue() {
    while (!isEmpty()) {
        MessageEnvelope* envelope = takeFirst();
        envelope->handler.clear();
        giveBack(envelope);
    }
}

bool MessageQueue::insert(nsecs_t uptime, const sp<PeltoMessageHandler>& handler,
                          const PeltoMessage& message) {
    MessageEnvelope* envelope = mPool.take();
    envelope->uptime = uptime;
    envelope->handler = handler;
    copyMessage(&envelope->message, message);

    if (mHead == 0 || mTail == mCapacity) makeRoom();
    const size_t place = placeFor(uptime);
    const bool first = place == mHead;
    *openGapAt(place) = Key{uptime, envelope};
    return first;
}

// The first key that is due strictly later. Most messages are due now, so the end is tried first.
size_t MessageQueue::placeFor(nsecs_t uptime) const {
    if (isEmpty() || uptime >= mKeys[mTail - 1].uptime) return mTail;
    const Key* const begin = mKeys.get() + mHead;
    const Key* const end = mKeys.get() + mTail;
    const Key* const place = std::upper_bound(
        begin, end, uptime, [](nsecs_t wanted, const Key& key) { return wanted < key.uptime; });
    return static_cast<size_t>(place - mKeys.get());
}

// Moves the keys of the shorter side by one.
MessageQueue::Key* MessageQueue::openGapAt(size_t place) {
    Key* const keys = mKeys.get();
    if (place - mHead < mTail - place) {
        std::copy(keys + mHead, keys + place, keys + mHead - 1);
        --mHead;
        return keys + place - 1;
    }
    std::copy_backward(keys + place, keys + mTail, keys + mTail + 1);
    ++mTail;
    return keys + place;
}

// Gives both ends a free place, by sliding when half of the array is free, else by growing.
void MessageQueue::makeRoom() {
    const size_t count = size();
    const size_t capacity =
        count * 2 >= mCapacity ? std::max(mCapacity * 2, kLeastCapacity) : mCapacity;
    moveTo(capacity, (capacity - count) / 4 + 1);
}

void MessageQueue::moveTo(size_t capacity, size_t head) {
    const size_t count = size();
    if (capacity == mCapacity) {
        std::memmove(mKeys.get() + head, mKeys.get() + mHead, count * sizeof(Key));
    } else {
        std::unique_ptr<Key[]> keys(new Key[capacity]);
        std::copy_n(mKeys.get() + mHead, count, keys.get() + head);
        mKeys = std::move(keys);
        mCapacity = capacity;
    }
    mHead = head;
    mTail = head + count;
}

MessageEnvelope* MessageQueue::takeFirst() {
    MessageEnvelope* const envelope = mKeys[mHead++].envelope;
    // The next one is on its way while this one's handler runs.
    if (!isEmpty()) __builtin_prefetch(mKeys[mHead].envelope);
    settleWhenEmpty();
    return envelope;
}

void MessageQueue::giveBack(MessageEnvelope* envelope) {
    mPool.give(envelope);
}

// An empty array starts over from its first quarter, or goes when a burst has made it big.
void MessageQueue::settleWhenEmpty() {
    if (!isEmpty()) return;
    if (mCapacity > kKeptCapacity) {
        mKeys.reset();
        mCapacity = 0;
    }
    mHead = mTail = mCapacity / 4;
}

template <typename Wanted>
void MessageQueue::removeIf(Wanted wanted) {
    Key* kept = mKeys.get() + mHead;
    for (size_t i = mHead; i < mTail; ++i) {
        const Key key = mKeys[i];
        if (!wanted(*key.envelope)) {
            *kept++ = key;
            continue;
        }
        key.envelope->handler.clear();
        giveBack(key.envelope);
    }
    mTail = static_cast<size_t>(kept - mKeys.get());
    settleWhenEmpty();
}

// The caller holds the handler, so no reference dropped here is the last one.
void MessageQueue::remove(const sp<PeltoMessageHandler>& handler) {
    removeIf([&](const MessageEnvelope& envelope) { return envelope.handler == handler; });
}

void MessageQueue::remove(const sp<PeltoMessageHandler>& handler, int32_t what) {
    removeIf([&](const MessageEnvelope& envelope) {
        return envelope.handler == handler && envelope.message.what == what;
    });
}

size_t MessageQueue::footprint() const {
    return mCapacity * sizeof(Key) + mPool.blocks() * mPool.kBlockSlots * sizeof(MessageEnvelope);
}

}  // namespace android
