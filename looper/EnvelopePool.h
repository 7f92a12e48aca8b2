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

// The places in which envelopes lie: blocks that do not move, a freed place used again first, so
// that a short queue stays in the cache.
//
// Threads: none of its own; the looper's lock covers it.
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
    // Frees the blocks that are empty, but for one. For when a burst is over: what comes and goes
    // during one does not get its memory from the system anew.
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
        Block* previous;     // in the list of the open ones, while it has a free slot
        Block* next;
    };
    static constexpr uint32_t kAllFree = UINT32_MAX;
    static_assert(kBlockSlots == 32, "one bit of freeSlots for each slot");

    Block* makeBlock();
    void open(Block* block);
    void close(Block* block);

    // Blocks with a free slot, the one to use next first. A list in the blocks: what grows with a
    // burst would lie behind it in the heap and keep it there.
    Block* mOpen = nullptr;
    size_t mEmpty = 0;  // how many of them are empty
};

}  // namespace android
