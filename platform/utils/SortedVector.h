#pragma once

#include <utils/Vector.h>

#include <algorithm>

namespace android {

// A vector kept in ascending order without duplicates.
template <typename T>
class SortedVector {
  public:
    size_t size() const { return mItems.size(); }

    const T& operator[](size_t index) const {
        if (index >= mItems.size()) fatalIndexOutOfRange("SortedVector", index, mItems.size());
        return mItems[index];
    }

    // The item's index, NAME_NOT_FOUND for a missing one.
    ssize_t indexOf(const T& item) const {
        const auto place = std::lower_bound(mItems.begin(), mItems.end(), item);
        if (place == mItems.end() || item < *place) return NAME_NOT_FOUND;
        return place - mItems.begin();
    }

    // Adds the item, or replaces an equal one; returns its index.
    ssize_t add(const T& item) {
        auto place = std::lower_bound(mItems.begin(), mItems.end(), item);
        if (place == mItems.end() || item < *place) {
            place = mItems.insert(place, item);
        } else {
            *place = item;
        }
        return place - mItems.begin();
    }

  private:
    std::vector<T> mItems;
};

}  // namespace android
