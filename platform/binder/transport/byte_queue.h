#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace android::transport {

// A queue of bytes: added at the back, read and consumed at the front.
class ByteQueue {
  public:
    size_t size() const { return mTail - mHead; }
    bool empty() const { return size() == 0; }
    const uint8_t* front() const { return mBytes.data() + mHead; }

    // Room for `size` bytes at the back; filled() tells how many were written.
    uint8_t* room(size_t size) {
        if (mBytes.size() - mTail < size) makeRoom(size);
        return mBytes.data() + mTail;
    }
    void filled(size_t size) { mTail += size; }

    void append(const uint8_t* bytes, size_t size) {
        if (size == 0) return;
        memcpy(room(size), bytes, size);
        filled(size);
    }

    void consume(size_t size) {
        mHead += size;
        if (empty()) clear();
    }

    void clear() {
        mHead = mTail = 0;
        if (mBytes.size() > kMaxKept) std::vector<uint8_t>().swap(mBytes);
    }

  private:
    static constexpr size_t kMaxKept = 256u << 10;  // larger buffers are freed when empty

    void makeRoom(size_t size) {
        const size_t held = this->size();
        if (held > 0 && mHead > 0) memmove(mBytes.data(), front(), held);
        mHead = 0;
        mTail = held;
        if (mBytes.size() - mTail < size) mBytes.resize(mTail + size);
    }

    std::vector<uint8_t> mBytes;
    size_t mHead = 0;
    size_t mTail = 0;
};

}  // namespace android::transport
