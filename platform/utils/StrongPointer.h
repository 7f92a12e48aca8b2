#pragma once

#include <cstddef>
#include <functional>
#include <utility>

namespace android {

template <typename T>
class wp;

// A strong reference: keeps the object alive. T derives from RefBase.
template <typename T>
class sp {
  public:
    sp() = default;
    sp(std::nullptr_t) {}
    sp(T* other) : mPointer(other) { hold(); }
    sp(const sp& other) : mPointer(other.mPointer) { hold(); }
    sp(sp&& other) noexcept : mPointer(std::exchange(other.mPointer, nullptr)) {}
    template <typename U>
    sp(U* other) : mPointer(other) {
        hold();
    }
    template <typename U>
    sp(const sp<U>& other) : mPointer(other.get()) {
        hold();
    }
    template <typename U>
    sp(sp<U>&& other) noexcept : mPointer(std::exchange(other.mPointer, nullptr)) {}
    ~sp() { drop(mPointer); }

    template <typename... Args>
    static sp make(Args&&... args) {
        return sp(new T(std::forward<Args>(args)...));
    }

    // The new reference is taken before the old one is dropped.
    sp& operator=(sp other) noexcept {
        std::swap(mPointer, other.mPointer);
        return *this;
    }

    // The member is empty before the object's destructor can run.
    void clear() { drop(std::exchange(mPointer, nullptr)); }

    T& operator*() const { return *mPointer; }
    T* operator->() const { return mPointer; }
    T* get() const { return mPointer; }

  private:
    template <typename U>
    friend class sp;
    template <typename U>
    friend class wp;

    void hold() {
        if (mPointer != nullptr) mPointer->incStrong(this);
    }
    void drop(T* pointer) {
        if (pointer != nullptr) pointer->decStrong(this);
    }

    T* mPointer = nullptr;
};

template <typename T, typename U>
bool operator==(const sp<T>& a, const sp<U>& b) {
    return a.get() == b.get();
}
template <typename T, typename U>
bool operator!=(const sp<T>& a, const sp<U>& b) {
    return a.get() != b.get();
}
template <typename T>
bool operator<(const sp<T>& a, const sp<T>& b) {
    return std::less<T*>()(a.get(), b.get());
}
template <typename T>
bool operator==(const sp<T>& a, std::nullptr_t) {
    return a.get() == nullptr;
}
template <typename T>
bool operator!=(const sp<T>& a, std::nullptr_t) {
    return a.get() != nullptr;
}
template <typename T>
bool operator==(std::nullptr_t, const sp<T>& b) {
    return b.get() == nullptr;
}
template <typename T>
bool operator!=(std::nullptr_t, const sp<T>& b) {
    return b.get() != nullptr;
}

}  // namespace android
