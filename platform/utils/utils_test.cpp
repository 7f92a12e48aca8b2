#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <utils/RefBase.h>
#include <utils/SortedVector.h>
#include <utils/Thread.h>
#include <utils/ThreadStartControl.h>
#include <utils/Timers.h>
#include <utils/Vector.h>

#include <atomic>
#include <climits>
#include <functional>
#include <future>
#include <string>
#include <thread>

namespace android {
namespace {

using namespace std::chrono_literals;

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
        std::vector<std::future<void>> threads;
        for (int thread = 0; thread < 3; ++thread) {
            threads.push_back(std::async(std::launch::async, [&] {
                for (int i = 0; i < 100; ++i) {
                    const sp<Subject> strong = weak.promote(), copy = strong;
                    if (copy != nullptr) ++promoted;
                }
            }));
        }
        threads.clear();  // joins them
        // Without an owner, the first drop to zero destroys it, exactly once.
        EXPECT_EQ(keep != nullptr ? "first " : "first last-strong destroyed ", log);
        EXPECT_TRUE(keep == nullptr || promoted == 300) << promoted;
    }
}

// Runs a function of the test and signals its own destruction.
class Worker : public Thread {
  public:
    explicit Worker(std::function<bool()> body) : mBody(std::move(body)) {}
    ~Worker() override { gone.set_value(); }

    status_t ready = OK;
    std::promise<void> gone;

  private:
    status_t readyToRun() override { return ready; }
    bool threadLoop() override { return mBody(); }

    const std::function<bool()> mBody;
};

TEST(ThreadTest, RepeatsUntilTheLoopSaysNo) {
    int passes = 0;
    std::string name(32, '\0');
    const sp<Worker> worker = new Worker([&] {
        prctl(PR_GET_NAME, name.data());
        return ++passes < 5;
    });
    ASSERT_EQ(OK, worker->run("KelvoGpuMinidump", -20, 128 * 1024));
    EXPECT_EQ(OK, worker->join());
    EXPECT_EQ(5, passes);
    EXPECT_FALSE(worker->isRunning());
    EXPECT_STREQ("KelvoGpuMinidum", name.c_str());

    ASSERT_EQ(OK, worker->run("again")) << "may be run again once it has ended";
    EXPECT_EQ(OK, worker->join());
    worker->ready = NO_INIT;
    ASSERT_EQ(OK, worker->run("unready"));
    EXPECT_EQ(NO_INIT, worker->join());
    EXPECT_EQ(6, passes);
    thread_control::refuse("refused");
    const sp<Worker> refused = new Worker([] { return false; });
    EXPECT_EQ(UNKNOWN_ERROR, refused->run("refused"));
    EXPECT_FALSE(refused->isRunning());
    EXPECT_EQ(1, refused->getStrongCount());
}

TEST(ThreadTest, RunsFromRunOnAndEndsOnRequest) {
    thread_control::hold("held");
    std::promise<status_t> waited;
    sp<Worker> worker = new Worker([&, once = true]() mutable {
        if (std::exchange(once, false)) waited.set_value(worker->requestExitAndWait());
        return true;
    });
    ASSERT_EQ(OK, worker->run("held"));
    ASSERT_TRUE(thread_control::awaitHeld("held"));
    EXPECT_TRUE(worker->isRunning());
    EXPECT_EQ(INVALID_OPERATION, worker->run("held"));
    thread_control::release("held");
    EXPECT_EQ(WOULD_BLOCK, waited.get_future().get()) << "on itself";
    EXPECT_EQ(OK, worker->requestExitAndWait());
    EXPECT_FALSE(worker->isRunning());
    EXPECT_EQ(OK, worker->requestExitAndWait()) << "nothing to wait for";
}

TEST(ThreadTest, EndsWhenNobodyElseWantsIt) {
    std::promise<void> started, goOn;
    sp<Worker> worker = new Worker([&, once = true]() mutable {
        if (std::exchange(once, false)) started.set_value(), goOn.get_future().wait();
        return true;
    });
    auto gone = worker->gone.get_future();
    ASSERT_EQ(OK, worker->run("orphan"));
    started.get_future().wait();
    worker.clear();
    EXPECT_EQ(std::future_status::timeout, gone.wait_for(0s)) << "held while its loop runs";
    goOn.set_value();
    EXPECT_EQ(std::future_status::ready, gone.wait_for(20s));
}

TEST(ValuesTest, TimeoutDelaysAreRoundedUpAndClamped) {
    EXPECT_EQ(0, toMillisecondTimeoutDelay(6, 5));
    EXPECT_EQ(0, toMillisecondTimeoutDelay(5, 5));
    EXPECT_EQ(1, toMillisecondTimeoutDelay(0, 1000000));
    EXPECT_EQ(2, toMillisecondTimeoutDelay(0, 1000001));
    EXPECT_EQ(INT_MAX, toMillisecondTimeoutDelay(INT64_MIN, INT64_MAX));
}

TEST(ValuesTest, SortedVectorsHoldEachItemOnceInOrderAndCheckIndices) {
    SortedVector<int> sorted;
    for (const int item : {5, 1, 3, 1, 5}) sorted.add(item);
    ASSERT_EQ(3u, sorted.size());
    for (const int item : {1, 3, 5}) EXPECT_EQ(item / 2, sorted.indexOf(item));
    EXPECT_EQ(NAME_NOT_FOUND, sorted.indexOf(4));
    EXPECT_DEATH(sorted[3], "index=3 out of range \\(3\\)");
    EXPECT_DEATH(Vector<int>()[0], "index=0 out of range \\(0\\)");
}

}  // namespace
}  // namespace android
