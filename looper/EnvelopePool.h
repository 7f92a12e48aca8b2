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

    // Content unspecified, handler null.
    MessageEnvelope* take();
    // The handler reference must have been dropped.
    void give(MessageEnvelope* envelope);
    // Frees the empty blocks except one. Called after a burst, so that messages within one reuse
    // their blocks.
    void shrink();

  private:
    static constexpr size_t kBlockSlots = 32;

    struct Slot {
        MessageEnvelope envelope;  // first: an envelope's address is its slot's
        uint32_t index;
    };
    struct Block {
        Slot slots[kBlockSlots];
        uint32_t freeSlots;  // one bit a slot
        Block* previous;     // in the list mOpen, while it has a free slot
        Block* next;
    };
    static constexpr uint32_t kAllFree = UINT32_MAX;
    static_assert(kBlockSlots == 32, "one bit of freeSlots for each slot");

    Block* makeBlock();
    void open(Block* block);
    void close(Block* block);

    // Blocks with a free slot, the one to use next first. Intrusive free list: a separate array
    // would grow above the blocks and keep the heap from shrinking.
    Block* mOpen = nullptr;
    size_t mEmpty = 0;  // how many blocks in mOpen are empty
};

}  // namespace android
