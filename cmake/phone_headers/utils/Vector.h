#pragma once

#include <sys/types.h>

#include <cstddef>

namespace android {

template <typename T>
class Vector {
  public:
    Vector();
    ~Vector();
    size_t size() const;
    bool isEmpty() const;
    void clear();
    const T& operator[](size_t index) const;
    T& editItemAt(size_t index);
    ssize_t add(const T& item);
    void push(const T& item);
};

}  // namespace android
