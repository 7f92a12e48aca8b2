#pragma once

#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <cstddef>
#include <cstdint>

#include "looper/PeltoMessage.h"
#include "looper/PeltoMessageHandler.h"

namespace android {

// One queued message.
struct MessageEnvelope {
    int64_t uptime;  // when it is due, on the monotonic clock
    sp<PeltoMessageHandler> handler;
    PeltoMessage message;
};

// The storage of envelopes: blocks that never move. A freed slot is reused first, so that a short
// queue stays in the cache.
//
// Threads: not synchronised; the looper's lock guards it.
class EnvelopePool {
  public:
    EnvelopePool() = default;
    ~EnvelopePool();
    EnvelopePool(const EnvelopePool&) = delete;
    EnvelopePool& operator=(const EnvelopePool&) = delete;

    // A free envelope, from a new block when none is left: its handler is null, its other fields
    // are unspecified.
    MessageEnvelope* take();
    // Takes an envelope back; the caller has dropped its handler reference.
    void give(MessageEnvelope* envelope);
    // Frees empty blocks that recent bursts would not have used. Called at each rest: when a poll
    // finds no message due, or after a removal. Keeps as many empty blocks as were taken since the
    // last rest, or an eighth less than that kept: at least one and at most kMaxEmpty. While its
    // looper sleeps the memory stays.
    void shrink();

  private:
    static constexpr size_t kBlockSlots = 32;

    struct Slot {
        MessageEnvelope envelope;  // first, so that its address is its slot's
        uint32_t index;
    };
    struct Block {
        Slot slots[kBlockSlots];
        uint32_t freeSlots;  // a set bit for each free slot
        Block* previous;     // in the list mOpen, while it has a free slot
        Block* next;
    };
    static constexpr size_t kMaxEmpty = (1u << 20) / sizeof(Block);  // 1 MiB
    static constexpr uint32_t kAllFree = UINT32_MAX;
    static_assert(kBlockSlots == 32, "one bit of freeSlots for each slot");

    Block* makeBlock();
    void open(Block* block);
    void close(Block* block);

    // Blocks with a free slot, the one to use next first. Intrusive free list: a separate array
    // would grow above the blocks and keep the heap from shrinking.
    Block* mOpen = nullptr;
    size_t mEmpty = 0;  // how many blocks in mOpen are empty
    size_t mUsed = 0;   // how many blocks are not
    size_t mPeak = 0;   // the most that mUsed has been since the last rest
    size_t mKept = 0;   // how many empty blocks the last rest wanted to keep
};

}  // namespace android
