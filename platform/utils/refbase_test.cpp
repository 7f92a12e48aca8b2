#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <atomic>
#include <string>
#include <thread>

namespace android {
namespace {

// Records its callbacks in a log that outlives it.
class Subject : public virtual RefBase {
  public:
    explicit Subject(std::string* log, bool liveWithWeak = false) : mLog(log) {
        if (liveWithWeak) extendObjectLifetime(OBJECT_LIFETIME_WEAK);
    }
    ~Subject() override { *mLog += "destroyed "; }

  protected:
    void onFirstRef() override { *mLog += "first "; }
    void onLastStrongRef(const void*) override { *mLog += "last-strong "; }

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
    EXPECT_EQ(nullptr, wp<Subject>(weak).promote());

    // Never held strongly it can be promoted until it is deleted.
    log.clear();
    auto* subject = new Subject(&log);
    const wp<Subject> deleted(subject);
    { const wp<Subject> another(subject); }
    delete subject;
    EXPECT_EQ(nullptr, deleted.promote());
    const wp<Subject> lasting(new Subject(&log));
    lasting.promote().clear();
    EXPECT_EQ("destroyed first last-strong destroyed ", log);
}

TEST(RefBaseTest, WithLifetimeExtendedTheLastWeakReferenceDecides) {
    std::string log;
    wp<Subject> weak = sp<Subject>(new Subject(&log, true));
    EXPECT_EQ("first last-strong ", log);
    weak.promote().clear();
    EXPECT_EQ("first last-strong last-strong ", log) << "referenced strongly again, not anew";
    weak.clear();
    EXPECT_EQ("first last-strong last-strong destroyed ", log);

    log.clear();
    sp<Subject>(new Subject(&log, true)).clear();
    EXPECT_EQ("first last-strong destroyed ", log) << "without weak references";
}

TEST(RefBaseTest, CountsAreExactUnderThreads) {
    for (int round = 0; round < 20; ++round) {
        std::string log;
        const wp<Subject> weak(new Subject(&log));
        const sp<Subject> keep = round % 2 == 0 ? weak.promote() : nullptr;
        std::atomic<int> promoted{0};
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 3; ++thread) {
            threads.emplace_back([&] {
                for (int i = 0; i < 100; ++i) {
                    const sp<Subject> strong = weak.promote(), copy = strong;
                    if (copy != nullptr) ++promoted;
                }
            });
        }
        for (std::thread& thread : threads) thread.join();
        // Without an owner, the first drop to zero destroys it, exactly once.
        EXPECT_EQ(keep != nullptr ? "first " : "first last-strong destroyed ", log);
        EXPECT_TRUE(keep == nullptr || promoted == 300) << promoted;
    }
}

}  // namespace
}  // namespace android
