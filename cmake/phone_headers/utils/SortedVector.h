#pragma once

#include <sys/types.h>

#include <cstddef>

namespace android {

template <typename T>
class SortedVector {
  public:
    SortedVector();
    ~SortedVector();
    size_t size() const;
    const T& operator[](size_t index) const;
    ssize_t indexOf(const T& item) const;
    ssize_t add(const T& item);
};

}  // namespace android
