#include "looper/EnvelopePool.h"

namespace android {

// Only a looper without messages in delivery dies; what still waits has been given back by then.
EnvelopePool::~EnvelopePool() {
    for (Block* block : mOpen) delete block;
}

EnvelopePool::Block* EnvelopePool::makeBlock() {
    auto* block = new Block;
    for (uint32_t i = 0; i < kBlockSlots; ++i) block->slots[i].index = i;
    block->freeSlots = kAllFree;
    return block;
}

void EnvelopePool::open(Block* block) {
    block->openIndex = mOpen.size();
    mOpen.push_back(block);
}

void EnvelopePool::close(Block* block) {
    mOpen[block->openIndex] = mOpen.back();
    mOpen[block->openIndex]->openIndex = block->openIndex;
    mOpen.pop_back();
}

MessageEnvelope* EnvelopePool::take() {
    if (mOpen.empty()) {
        this->open(makeBlock());
        ++mEmpty;
    }
    Block* block = mOpen.back();
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
    for (size_t i = mOpen.size(); mEmpty > 1; --i) {
        Block* const block = mOpen[i - 1];
        if (block->freeSlots != kAllFree) continue;
        close(block);
        delete block;
        --mEmpty;
    }
}

}  // namespace android
