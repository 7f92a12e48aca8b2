#include <utils/ThreadControl.h>

#include <future>
#include <thread>

#include "looper/HandlerThread.h"
#include "tests/support/phone_test.h"

namespace android {
namespace {

class HandlerThreadTest : public PhoneTest {
  protected:
    const sp<HandlerThread> thread = new HandlerThread();
};

// Blocks in its first message until it is let go.
class Gate : public PeltoMessageHandler {
  public:
    void handleMessage(const PeltoMessage& message) override {
        if (message.what == 0) {
            entered.set_value();
            goOn.get_future().wait();
        }
        seen.push_back(message.what);
    }
    std::promise<void> entered;
    std::promise<void> goOn;
    std::vector<int> seen;  // read once the thread has ended
};

PeltoMessage messageOf(int32_t what) {
    PeltoMessage message = {};
    message.what = what;
    return message;
}

TEST_F(HandlerThreadTest, GetLooperWaitsForTheThreadToMakeIt) {
    thread_control::hold("pelto_looper");
    ASSERT_EQ(OK, thread->start("pelto_looper", 0, 0));
    ASSERT_TRUE(thread_control::awaitHeld("pelto_looper"));
    auto looper = std::async(std::launch::async, [&] { return thread->getLooper(); });
    thread_control::release("pelto_looper");
    EXPECT_NE(nullptr, looper.get());
    EXPECT_FALSE(thread->getLooper()->getAllowNonCallbacks());
    thread->quit();
    EXPECT_FALSE(thread->isRunning());
    thread->quit();
}

TEST_F(HandlerThreadTest, AQuitLetsThePollInProgressDeliverWhatIsDueAndNothingAfterIt) {
    ASSERT_EQ(OK, thread->start("pelto_looper", 0, 0));
    const sp<PeltoLooper> looper = thread->getLooper();
    const sp<Gate> gate = new Gate();
    looper->sendMessage(gate, messageOf(0));
    gate->entered.get_future().wait();
    looper->sendMessage(gate, messageOf(1));
    looper->sendMessageDelayed(3'600'000'000'000, gate, messageOf(2));
    auto quit = std::async(std::launch::async, [&] { thread->quit(); });
    gate->goOn.set_value();
    quit.get();
    looper->sendMessage(gate, messageOf(3));
    EXPECT_EQ((std::vector<int>{0, 1}), gate->seen);
    EXPECT_EQ(3, gate->getStrongCount()) << "undelivered messages stay in the looper";
}

TEST_F(HandlerThreadTest, OneThatNeverRanEndsAtOnce) {
    thread_control::refuse("pelto_looper");
    EXPECT_EQ(UNKNOWN_ERROR, thread->start("pelto_looper", 0, 0));
    thread->quit();
}

TEST_F(HandlerThreadTest, ItsLooperGoesWithIt) {
    wp<PeltoLooper> looper;
    {
        const sp<HandlerThread> brief = new HandlerThread();
        ASSERT_EQ(OK, brief->start("pelto_looper", 0, 0));
        looper = brief->getLooper();
        brief->quit();
    }
    // The thread's own binding goes a moment after it has reported its end.
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (looper.promote() != nullptr) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        std::this_thread::yield();
    }
}

}  // namespace
}  // namespace android
