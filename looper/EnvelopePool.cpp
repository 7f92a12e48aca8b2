#include "looper/EnvelopePool.h"

#include <algorithm>
#include <functional>

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
    if (block->freeSlots == kAllFree) {
        --mEmpty;
        mPeak = std::max(mPeak, ++mUsed);
    }
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
    if (block->freeSlots == kAllFree) {
        ++mEmpty;
        --mUsed;
    }
}

void EnvelopePool::shrink() {
    mKept = std::max({mKept - (mKept + 7) / 8, mPeak - mUsed, size_t{1}});
    mKept = std::min(mKept, kMaxEmpty);
    mPeak = mUsed;
    // Keeps those at the lowest addresses: higher ones would keep the heap large. The highest of
    // them is the first of the array.
    Block* kept[kMaxEmpty + 1];
    size_t count = 0;
    for (Block* block = mOpen; mEmpty > mKept;) {
        Block* empty = block;
        block = block->next;
        if (empty->freeSlots != kAllFree) continue;
        kept[count++] = empty;
        std::push_heap(kept, kept + count, std::less<>());
        if (count <= mKept) continue;
        std::pop_heap(kept, kept + count, std::less<>());
        empty = kept[--count];
        close(empty);
        delete empty;
        --mEmpty;
    }
}

}  // namespace android
