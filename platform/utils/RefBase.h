#pragma once

#include <utils/StrongPointer.h>

#include <cstdint>

namespace android {

// Base of every object that is shared by counted references.
//
// Ownership: the first strong reference calls onFirstRef(). When the last one goes,
//   onLastStrongRef() is called and the object is destroyed, unless its lifetime was extended to
//   weak references: then it lives until the last weak one goes, and may be referenced strongly
//   again in between.
// Threads: every operation may be called from any thread; counts are exact.
class RefBase {
  public:
    class weakref_type;

    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    int32_t getStrongCount() const;

    weakref_type* createWeak(const void* id) const;
    weakref_type* getWeakRefs() const;

    // The target of weak references; outlives the object until the last of them goes.
    class weakref_type {
      public:
        void incWeak(const void* id);
        void decWeak(const void* id);
        // Takes a strong reference unless the object is gone or on its way out.
        bool attemptIncStrong(const void* id);

      protected:
        weakref_type() = default;
        ~weakref_type() = default;
    };

  protected:
    enum { OBJECT_LIFETIME_STRONG = 0, OBJECT_LIFETIME_WEAK = 1 };

    RefBase();
    virtual ~RefBase();
    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

    // To be called from the constructor only.
    void extendObjectLifetime(int32_t mode);

    virtual void onFirstRef() {}
    virtual void onLastStrongRef(const void* /*id*/) {}

  private:
    class Counts;
    Counts* const mRefs;
};

// A weak reference: does not keep the object alive. promote() gives a strong one, null when the
// object is gone.
template <typename T>
class wp {
  public:
    wp() = default;
    wp(std::nullptr_t) {}
    wp(T* other) : mPointer(other), mRefs(other != nullptr ? other->createWeak(this) : nullptr) {}
    wp(const wp& other) : mPointer(other.mPointer), mRefs(other.mRefs) { hold(); }
    wp(wp&& other) noexcept
        : mPointer(std::exchange(other.mPointer, nullptr)),
          mRefs(std::exchange(other.mRefs, nullptr)) {}
    template <typename U>
    wp(const sp<U>& other) : wp(static_cast<T*>(other.get())) {}
    // Upcasting to a virtual base reads the object, so it goes through a promoted pointer: null
    // when the object is gone. An object that was never held strongly is destroyed with that
    // pointer.
    template <typename U>
    wp(const wp<U>& other) : wp(other.promote()) {}
    ~wp() { drop(); }

    wp& operator=(wp other) noexcept {
        std::swap(mPointer, other.mPointer);
        std::swap(mRefs, other.mRefs);
        return *this;
    }

    sp<T> promote() const {
        sp<T> result;
        if (mRefs != nullptr && mRefs->attemptIncStrong(&result)) result.mPointer = mPointer;
        return result;
    }

    void clear() { *this = wp(); }

    bool operator==(const wp& other) const { return mRefs == other.mRefs; }

  private:
    void hold() {
        if (mRefs != nullptr) mRefs->incWeak(this);
    }
    void drop() {
        if (mRefs != nullptr) mRefs->decWeak(this);
    }

    T* mPointer = nullptr;
    RefBase::weakref_type* mRefs = nullptr;
};

}  // namespace android
