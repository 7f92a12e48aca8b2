#pragma once

#include <android/log.h>
#include <sys/types.h>
#include <utils/Errors.h>

#include <cstddef>
#include <vector>

namespace android {

[[noreturn]] inline void fatalIndexOutOfRange(const char* where, size_t index, size_t size) {
    __android_log_assert(nullptr, "Vector", "%s: index=%u out of range (%u)", where,
                         static_cast<unsigned>(index), static_cast<unsigned>(size));
}

// A growing array of values. Reading outside it ends the process.
template <typename T>
class Vector {
  public:
    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.empty(); }
    void clear() { mItems.clear(); }

    const T& operator[](size_t index) const {
        if (index >= mItems.size()) fatalIndexOutOfRange("Vector", index, mItems.size());
        return mItems[index];
    }
    T& editItemAt(size_t index) { return const_cast<T&>((*this)[index]); }

    // Appends the item; returns its index.
    ssize_t add(const T& item) {
        mItems.push_back(item);
        return static_cast<ssize_t>(mItems.size()) - 1;
    }
    void push(const T& item) { add(item); }

    typename std::vector<T>::const_iterator begin() const { return mItems.begin(); }
    typename std::vector<T>::const_iterator end() const { return mItems.end(); }

  private:
    std::vector<T> mItems;
};

}  // namespace android
