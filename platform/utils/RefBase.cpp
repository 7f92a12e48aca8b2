#include <utils/RefBase.h>

#include <atomic>

namespace android {

namespace {
// Set in the strong count until the first strong reference has been taken.
constexpr int32_t kNeverHeld = 1 << 30;
}  // namespace

// The counts of one object. Every strong reference holds a weak one too, and the object holds one
// weak reference itself from its construction to the end of its destructor: the last weak reference
// frees the counts.
class RefBase::Counts : public RefBase::weakref_type {
  public:
    explicit Counts(RefBase* base) : object(base) {}

    void releaseOwn() {
        if (weak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

    // Calls onFirstRef() when a new reference is the first; `before` is the count without it.
    void firstIfNeverHeld(int32_t before) {
        if (before != kNeverHeld) return;
        strong.fetch_sub(kNeverHeld, std::memory_order_relaxed);
        object->onFirstRef();
    }

    bool livesWithWeak() const {
        return lifetime.load(std::memory_order_relaxed) == OBJECT_LIFETIME_WEAK;
    }

    void destroyObject() { delete object; }

    std::atomic<int32_t> strong{kNeverHeld};
    std::atomic<int32_t> weak{1};
    std::atomic<int32_t> lifetime{OBJECT_LIFETIME_STRONG};
    RefBase* const object;
};

RefBase::RefBase() : mRefs(new Counts(this)) {}

RefBase::~RefBase() {
    // Makes promote() fail for an object that is destroyed without ever being held strongly.
    mRefs->strong.fetch_and(~kNeverHeld, std::memory_order_relaxed);
    mRefs->releaseOwn();
}

void RefBase::extendObjectLifetime(int32_t mode) {
    mRefs->lifetime.fetch_or(mode, std::memory_order_relaxed);
}

void RefBase::incStrong(const void* id) const {
    mRefs->incWeak(id);
    mRefs->firstIfNeverHeld(mRefs->strong.fetch_add(1, std::memory_order_relaxed));
}

void RefBase::decStrong(const void* id) const {
    Counts* const refs = mRefs;
    if (refs->strong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        refs->object->onLastStrongRef(id);
        if (!refs->livesWithWeak()) refs->destroyObject();
    }
    refs->decWeak(id);
}

int32_t RefBase::getStrongCount() const {
    return mRefs->strong.load(std::memory_order_relaxed) & ~kNeverHeld;
}

RefBase::weakref_type* RefBase::createWeak(const void* id) const {
    mRefs->incWeak(id);
    return mRefs;
}

RefBase::weakref_type* RefBase::getWeakRefs() const {
    return mRefs;
}

void RefBase::weakref_type::incWeak(const void* /*id*/) {
    static_cast<Counts*>(this)->weak.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::weakref_type::decWeak(const void* /*id*/) {
    auto* refs = static_cast<Counts*>(this);
    const bool livesWithWeak = refs->livesWithWeak();
    const int32_t before = refs->weak.fetch_sub(1, std::memory_order_acq_rel);
    if (before == 1) {
        delete refs;
    } else if (before == 2 && livesWithWeak) {
        // Only the object's own reference is left.
        refs->destroyObject();
    }
}

bool RefBase::weakref_type::attemptIncStrong(const void* id) {
    auto* const refs = static_cast<Counts*>(this);
    int32_t count = refs->strong.load(std::memory_order_relaxed);
    do {
        if (count == 0 && !refs->livesWithWeak()) return false;
    } while (!refs->strong.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel,
                                                 std::memory_order_relaxed));
    incWeak(id);
    refs->firstIfNeverHeld(count);
    return true;
}

}  // namespace android
