#pragma once

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <string_view>

// Takes an input apart from the front. Past its end every byte is 0 and every text empty.
class FuzzInput {
  public:
    FuzzInput(const uint8_t* data, size_t size)
        : mRest(reinterpret_cast<const char*>(data), size) {}

    bool empty() const { return mRest.empty(); }
    uint8_t byte() {
        const std::string_view one = bytes(1);
        return one.empty() ? uint8_t{0} : static_cast<uint8_t>(one[0]);
    }
    std::string_view bytes(size_t size) {
        const std::string_view taken = mRest.substr(0, size);
        mRest.remove_prefix(taken.size());
        return taken;
    }
    // The bytes up to the first `end`, which is dropped.
    std::string_view until(char end) {
        const std::string_view taken = mRest.substr(0, mRest.find(end));
        mRest.remove_prefix(std::min(taken.size() + 1, mRest.size()));
        return taken;
    }
    std::string_view rest() { return bytes(mRest.size()); }

  private:
    std::string_view mRest;
};
