#pragma once

#include <cstddef>

namespace android {

class RefBase {
  public:
    class weakref_type {
      public:
        void incWeak(const void* id);
        void decWeak(const void* id);
    };
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    weakref_type* getWeakRefs() const;

  protected:
    enum { OBJECT_LIFETIME_WEAK = 1 };
    RefBase();
    virtual ~RefBase();
    void extendObjectLifetime(int mode);
    virtual void onFirstRef();
    virtual void onLastStrongRef(const void* id);
};

template <typename T>
class sp {
  public:
    sp();
    sp(std::nullptr_t);
    sp(T* other);
    sp(const sp& other);
    template <typename U>
    sp(const sp<U>& other);
    ~sp();
    sp& operator=(const sp& other);
    void clear();
    T& operator*() const;
    T* operator->() const;
    T* get() const;
    template <typename U>
    bool operator==(const sp<U>& other) const;
    bool operator==(std::nullptr_t) const;
    bool operator!=(std::nullptr_t) const;
    bool operator<(const sp& other) const;
};

template <typename T>
class wp {
  public:
    wp(const wp& other);
    ~wp();
    sp<T> promote() const;
};

}  // namespace android
