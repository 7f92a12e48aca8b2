#include "looper/EnvelopePool.h"

#include <functional>
#include <utility>

namespace android {

// Every block is empty, and so in the list mOpen: the queue has freed its messages and none is
// being delivered.
EnvelopePool::~EnvelopePool() {
    while (mOpen != nullptr) {
        Block* const block = mOpen;
        close(block);
        delete block;
    }
}

EnvelopePool::Block* EnvelopePool::makeBlock() {
    auto* block = new Block;
    for (uint32_t i = 0; i < kBlockSlots; ++i) block->slots[i].index = i;
    block->freeSlots = kAllFree;
    return block;
}

void EnvelopePool::open(Block* block) {
    block->previous = nullptr;
    block->next = mOpen;
    if (mOpen != nullptr) mOpen->previous = block;
    mOpen = block;
}

void EnvelopePool::close(Block* block) {
    (block->previous != nullptr ? block->previous->next : mOpen) = block->next;
    if (block->next != nullptr) block->next->previous = block->previous;
}

MessageEnvelope* EnvelopePool::take() {
    if (mOpen == nullptr) {
        this->open(makeBlock());
        ++mEmpty;
    }
    Block* block = mOpen;
    if (block->freeSlots == kAllFree) --mEmpty;
    const int slot = __builtin_ctz(block->freeSlots);
    block->freeSlots &= block->freeSlots - 1;
    if (block->freeSlots == 0) close(block);
    return &block->slots[slot].envelope;
}

void EnvelopePool::give(MessageEnvelope* envelope) {
    auto* slot = reinterpret_cast<Slot*>(envelope);
    const uint32_t index = slot->index;
    auto* block = reinterpret_cast<Block*>(slot - index);
    if (block->freeSlots == 0) this->open(block);
    block->freeSlots |= 1u << index;
    if (block->freeSlots == kAllFree) ++mEmpty;
}

void EnvelopePool::shrink() {
    Block* kept = nullptr;  // the one at the lowest address: a higher one would keep the heap large
    for (Block* block = mOpen; mEmpty > 1;) {
        Block* empty = block;
        block = block->next;
        if (empty->freeSlots != kAllFree) continue;
        if (kept == nullptr || std::less<>()(empty, kept)) std::swap(empty, kept);
        if (empty == nullptr) continue;
        close(empty);
        delete empty;
        --mEmpty;
    }
}

}  // namespace android
