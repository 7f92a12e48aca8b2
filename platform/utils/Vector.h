#pragma once

#include <sys/types.h>
#include <utils/Errors.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace android {

// Ends the process: "WHERE: index=I out of range (SIZE)".
[[noreturn]] void fatalIndexOutOfRange(const char* where, size_t index, size_t size);

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
    const T& itemAt(size_t index) const { return (*this)[index]; }
    T& editItemAt(size_t index) { return const_cast<T&>((*this)[index]); }

    // The new item's index.
    ssize_t add(const T& item) {
        mItems.push_back(item);
        return static_cast<ssize_t>(mItems.size()) - 1;
    }
    void push(const T& item) { add(item); }
    ssize_t insertAt(const T& item, size_t index) {
        if (index > mItems.size()) return BAD_INDEX;
        mItems.insert(mItems.begin() + static_cast<ptrdiff_t>(index), item);
        return static_cast<ssize_t>(index);
    }
    ssize_t removeAt(size_t index) {
        if (index >= mItems.size()) return BAD_INDEX;
        mItems.erase(mItems.begin() + static_cast<ptrdiff_t>(index));
        return static_cast<ssize_t>(index);
    }

    typename std::vector<T>::const_iterator begin() const { return mItems.begin(); }
    typename std::vector<T>::const_iterator end() const { return mItems.end(); }

  private:
    std::vector<T> mItems;
};

}  // namespace android
