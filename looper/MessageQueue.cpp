#include "looper/MessageQueue.h"

#include <algorithm>
#include <cstring>

namespace android {

namespace {

constexpr size_t kMinCapacity = 64;
// An array of keys above this capacity shrinks when mostly empty.
constexpr size_t kMaxKeptCapacity = 1024;

// Hides the size from the compiler, so that it calls memcpy(): on x86-64 some compilers inline a
// string instruction for a record of this size, which takes more than twice as long.
void copyMessage(PeltoMessage* to, const PeltoMessage& from) {
    size_t size = sizeof from;
    asm("" : "+r"(size));
    memcpy(to, &from, size);
}

}  // namespace

MessageQueue::~MessageQueue() {
    removeIf([](const MessageEnvelope&) { return true; });
}

bool MessageQueue::insert(int64_t uptime, int64_t now, const sp<PeltoMessageHandler>& handler,
                          const PeltoMessage& message) {
    MessageEnvelope* envelope = mPool.take();
    envelope->uptime = uptime;
    envelope->handler = handler;
    copyMessage(&envelope->message, message);

    if (mLease != nullptr && uptime < mLease->mLastUptime) revokeLease();
    if (joinsLease(uptime, now)) {
        mLease->add(envelope);
        return false;
    }
    const size_t place = placeFor(uptime);
    const bool first = place == mHead;
    insertKey(place, Key{uptime, envelope});
    return first;
}

bool MessageQueue::joinsLease(int64_t uptime, int64_t now) const {
    return mLease != nullptr && uptime <= now && (isEmpty() || uptime < firstUptime()) &&
           !mLease->isFull();
}

// The index of the first key that is due after `uptime`. Most messages are due at once, so the end
// is tried first.
size_t MessageQueue::placeFor(int64_t uptime) const {
    if (isEmpty() || uptime >= mKeys[mTail - 1].uptime) return mTail;
    const Key* const begin = mKeys.get() + mHead;
    const Key* const end = mKeys.get() + mTail;
    const Key* const place = std::upper_bound(
        begin, end, uptime, [](int64_t wanted, const Key& key) { return wanted < key.uptime; });
    return static_cast<size_t>(place - mKeys.get());
}

// Inserts a key by moving the keys on the shorter side by one.
void MessageQueue::insertKey(size_t place, const Key& key) {
    const size_t before = place - mHead;
    if (mHead == 0 || mTail == mCapacity) makeRoom();
    place = mHead + before;
    Key* const keys = mKeys.get();
    if (before < mTail - place) {
        std::copy(keys + mHead, keys + place, keys + mHead - 1);
        --mHead;
        keys[place - 1] = key;
    } else {
        std::copy_backward(keys + place, keys + mTail, keys + mTail + 1);
        ++mTail;
        keys[place] = key;
    }
}

// Makes free places at both ends: moves the keys when over half of the array is free, else grows
// it.
void MessageQueue::makeRoom() {
    const bool halfFull = size() * 2 >= mCapacity;
    placeKeys(halfFull ? std::max(mCapacity * 2, kMinCapacity) : mCapacity);
}

// Moves the keys into an array of that capacity, or within mKeys when it has that capacity: a
// quarter of the free places goes before them, the rest behind, as most messages go to the end.
void MessageQueue::placeKeys(size_t capacity) {
    const size_t count = size();
    const size_t head = (capacity - count) / 4 + 1;
    if (capacity == mCapacity) {
        memmove(mKeys.get() + head, mKeys.get() + mHead, count * sizeof(Key));
    } else {
        std::unique_ptr<Key[]> keys(new Key[capacity]);
        std::copy_n(mKeys.get() + mHead, count, keys.get() + head);
        mKeys = std::move(keys);
        mCapacity = capacity;
    }
    mHead = head;
    mTail = head + count;
}

// Frees empty blocks first, so that the smaller array can be placed below them in the heap.
void MessageQueue::shrink() {
    mPool.shrink();
    size_t capacity = mCapacity;
    while (capacity > kMaxKeptCapacity && size() * 8 <= capacity) capacity /= 4;
    if (capacity != mCapacity) placeKeys(capacity);
}

// Restores the free places at both ends of an empty array.
void MessageQueue::rewindWhenEmpty() {
    if (isEmpty()) mHead = mTail = mCapacity / 4;
}

void MessageQueue::grant(int64_t now, Lease* lease) {
    uint32_t count = 0;
    while (count < Lease::kMaxMessages && !isEmpty() && mKeys[mHead].uptime <= now) {
        lease->mLastUptime = mKeys[mHead].uptime;
        lease->mEnvelopes[count++] = mKeys[mHead++].envelope;
    }
    lease->mGranted.store(count, std::memory_order_relaxed);
    mLease = lease;
    rewindWhenEmpty();
}

void MessageQueue::revokeLease() {
    if (mLease == nullptr) return;
    mLease->mClaimed.fetch_or(Lease::kRevoked, std::memory_order_acq_rel);
    const uint32_t claimed = mLease->claimed();
    for (uint32_t i = mLease->mGranted.load(std::memory_order_relaxed); i-- > claimed;) {
        MessageEnvelope* const envelope = mLease->mEnvelopes[i];
        insertKey(mHead, Key{envelope->uptime, envelope});
    }
    mLease = nullptr;
}

void MessageQueue::settle(Lease* lease) {
    // A message may have joined after the last claim: it goes back into the queue.
    if (mLease == lease) revokeLease();
    for (uint32_t i = 0; i < lease->claimed(); ++i) mPool.give(lease->mEnvelopes[i]);
}

template <typename Wanted>
void MessageQueue::removeIf(Wanted wanted) {
    revokeLease();
    Key* kept = mKeys.get() + mHead;
    for (size_t i = mHead; i < mTail; ++i) {
        const Key key = mKeys[i];
        if (!wanted(*key.envelope)) {
            *kept++ = key;
            continue;
        }
        key.envelope->handler.clear();
        mPool.give(key.envelope);
    }
    mTail = static_cast<size_t>(kept - mKeys.get());
    rewindWhenEmpty();
    shrink();
}

// The caller holds the handler, so no reference released here is the last one.
void MessageQueue::remove(const sp<PeltoMessageHandler>& handler) {
    removeIf([&](const MessageEnvelope& envelope) { return envelope.handler == handler; });
}

void MessageQueue::remove(const sp<PeltoMessageHandler>& handler, int32_t what) {
    removeIf([&](const MessageEnvelope& envelope) {
        return envelope.handler == handler && envelope.message.what == what;
    });
}

}  // namespace android
