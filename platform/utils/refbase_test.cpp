#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace android {
namespace {

// Writes what happens to it into a log that outlives it.
class Subject : public virtual RefBase {
  public:
    explicit Subject(std::string* log, bool liveWithWeak = false) : mLog(log) {
        if (liveWithWeak) extendObjectLifetime(OBJECT_LIFETIME_WEAK);
    }
    ~Subject() override { *mLog += "destroyed "; }

  protected:
    void onFirstRef() override { *mLog += "first "; }
    void onLastStrongRef(const void*) override { *mLog += "last-strong "; }
    void onLastWeakRef(const void*) override { *mLog += "last-weak "; }

  private:
    std::string* const mLog;
};

TEST(RefBaseTest, StrongReferencesDecideOverTheObject) {
    std::string log;
    wp<Subject> weak;
    {
        sp<Subject> one = new Subject(&log);
        sp<Subject> two = one;
        weak = one;
        EXPECT_EQ(2, one->getStrongCount());
        one = *&one;  // to itself
        one.clear();
        EXPECT_EQ(two, weak.promote());
        EXPECT_EQ("first ", log);
    }
    EXPECT_EQ("first last-strong destroyed ", log);
    EXPECT_EQ(nullptr, weak.promote());
    EXPECT_EQ(nullptr, wp<Subject>(weak).promote());
}

TEST(RefBaseTest, AnObjectNeverHeldStronglyCanBePromotedUntilItIsDeleted) {
    std::string log;
    auto* subject = new Subject(&log);
    const wp<Subject> weak(subject);
    { const wp<Subject> another(subject); }
    delete subject;
    EXPECT_EQ(nullptr, weak.promote());

    auto* promoted = new Subject(&log);
    const wp<Subject> lasting(promoted);
    sp<Subject> strong = lasting.promote();
    EXPECT_EQ(promoted, strong.get());
    strong.clear();
    EXPECT_EQ("destroyed first last-strong destroyed ", log);
}

TEST(RefBaseTest, WithLifetimeExtendedTheLastWeakReferenceDecides) {
    std::string log;
    wp<Subject> weak;
    {
        const sp<Subject> strong = new Subject(&log, true);
        weak = strong;
    }
    EXPECT_EQ("first last-strong ", log);
    weak.promote().clear();
    EXPECT_EQ("first last-strong last-strong ", log) << "referenced strongly again, not anew";
    weak.clear();
    EXPECT_EQ("first last-strong last-strong last-weak destroyed ", log);

    log.clear();
    sp<Subject>(new Subject(&log, true)).clear();
    EXPECT_EQ("first last-strong last-weak destroyed ", log) << "without weak references";
}

// The object that is its own first owner: it survives a fall to zero while it is being built.
class Started : public virtual RefBase {
  public:
    explicit Started(bool* gone) : mGone(gone) {
        extendObjectLifetime(OBJECT_LIFETIME_WEAK);
        mSelf = this;
        sp<Started>(this).clear();
        mBuilt = true;
    }
    ~Started() override { *mGone = true; }

  protected:
    void onLastStrongRef(const void*) override {
        if (mBuilt) mSelf.clear();
    }

  private:
    bool* const mGone;
    bool mBuilt = false;
    wp<Started> mSelf;
};

TEST(RefBaseTest, AnObjectCanOutliveReferencesTakenInItsConstructor) {
    bool gone = false;
    sp<Started> started = new Started(&gone);
    EXPECT_FALSE(gone);
    started.clear();
    EXPECT_TRUE(gone);
}

class Counted : public virtual RefBase {
  public:
    static std::atomic<int> alive;
    static std::atomic<int> firsts;
    Counted() { ++alive; }
    ~Counted() override { --alive; }

  protected:
    void onFirstRef() override { ++firsts; }
};
std::atomic<int> Counted::alive{0};
std::atomic<int> Counted::firsts{0};

TEST(RefBaseTest, CountsAreExactUnderThreads) {
    constexpr int kRounds = 2000;
    constexpr int kThreads = 3;
    for (int round = 0; round < kRounds / 100; ++round) {
        auto* object = new Counted();
        const wp<Counted> weak(object);
        std::atomic<int> promoted{0};
        std::vector<std::thread> threads;
        const sp<Counted> keep = round % 2 == 0 ? sp<Counted>(object) : sp<Counted>();
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 100; ++i) {
                    const sp<Counted> strong = weak.promote();
                    const sp<Counted> copy = strong;
                    if (copy != nullptr) ++promoted;
                }
            });
        }
        for (auto& thread : threads) thread.join();
        // Without an owner the first fall to zero ends it, exactly once.
        EXPECT_EQ(keep != nullptr ? 1 : 0, Counted::alive.load());
        if (keep != nullptr) {
            EXPECT_EQ(kThreads * 100, promoted.load());
        }
    }
    EXPECT_EQ(0, Counted::alive.load());
    EXPECT_EQ(kRounds / 100, Counted::firsts.load());
}

}  // namespace
}  // namespace android
