#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <utils/Thread.h>
#include <utils/ThreadStartControl.h>

#include <atomic>
#include <functional>
#include <future>
#include <string>

namespace android {
namespace {

using namespace std::chrono_literals;

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
    std::atomic<int> passes{0};
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
    EXPECT_EQ(6, passes);
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

}  // namespace
}  // namespace android
