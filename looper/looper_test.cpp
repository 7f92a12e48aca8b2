#include <utils/ThreadStartControl.h>

#include <atomic>
#include <functional>
#include <future>
#include <stdexcept>
#include <thread>

#include "looper/HandlerThread.h"
#include "sim/base/clock.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using namespace std::chrono_literals;
using Codes = std::vector<int>;
constexpr nsecs_t kHour = 3'600'000'000'000;

// Records the codes it receives and runs a function of the test on each.
struct Recorder : PeltoMessageHandler {
    explicit Recorder(Codes& codes) : seen(codes) {}
    void handleMessage(const PeltoMessage& message) override {
        seen.push_back(message.what);
        if (then) then(message);
    }
    Codes& seen;
    std::function<void(const PeltoMessage&)> then;
};

// A looper that the test polls, on a held clock.
class LooperTest : public PhoneTest {
  protected:
    LooperTest() { holdClock(); }
    void post(int what) { looper->sendMessage(handler, {what, ""}); }
    void postIn(nsecs_t delay, int what) { looper->sendMessageDelayed(delay, handler, {what, ""}); }
    int poll(int timeoutMillis = 0) {
        return looper->pollOnce(timeoutMillis, nullptr, nullptr, nullptr);
    }
    // Expects one poll to deliver these codes.
    void expectPoll(const Codes& codes) {
        EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
        EXPECT_EQ(codes, std::exchange(seen, {}));
    }

    Codes seen;
    sp<PeltoLooper> looper = new PeltoLooper(false);
    const sp<Recorder> handler = new Recorder(seen), other = new Recorder(seen);
};

TEST_F(LooperTest, DeliversByDueTimeAndEqualTimesInPostingOrder) {
    postIn(20, 1);
    postIn(10, 2);
    postIn(20, 3);
    post(4);
    looper->sendMessageAtTime(-5, handler, {5, ""});
    postIn(INT64_MAX, 6);  // the due time wraps
    expectPoll({6, 5, 4});
    advance(10ns);
    expectPoll({2});
    advance(9ns);
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll());
    advance(1ns);
    expectPoll({1, 3});
    looper->sendMessage(nullptr, {7, ""});
    expectPoll({});
}

TEST_F(LooperTest, OnlyANewFirstMessageWakes) {
    const auto expectWake = [&](bool wake) {
        EXPECT_EQ(wake ? LOOPER_POLL_WAKE : LOOPER_POLL_TIMEOUT, poll());
    };
    expectWake(false);
    for (int i = 0; i < 1000; ++i) looper->wake();
    expectWake(true);
    expectWake(false);
    postIn(100, 1);
    expectWake(true);
    postIn(100, 2);
    postIn(101, 3);
    expectWake(false);
    postIn(99, 4);
    expectWake(true);
    looper->removeMessages(handler);
    expectWake(false);
    // Nor do messages that a handler posts; those that are due are delivered in the same poll.
    handler->then = [&](const PeltoMessage& message) {
        if (message.what < 4) post(message.what + 1);
        if (message.what == 4) looper->removeMessages(handler), postIn(50, 9);
    };
    post(1);
    expectPoll({1, 2, 3, 4});
    expectWake(false);
    advance(50ns);
    expectPoll({9});
}

TEST_F(LooperTest, ADeliveredMessageStaysWholeWhateverTheHandlerDoes) {
    int depth = 0;
    handler->then = [&](const PeltoMessage& message) {
        const PeltoMessage before = message;
        looper->sendMessage(handler, message);
        looper->removeMessages(handler, message.what);
        for (int i = 0; i < 100; ++i) postIn(1000, i);
        if (++depth < 3) {
            post(message.what + 1);
            EXPECT_EQ(LOOPER_POLL_CALLBACK, poll()) << "polls may nest";
        }
        EXPECT_EQ(0, memcmp(&before, &message, sizeof before));
    };
    PeltoMessage message{200, ""};
    memset(message.sValue, 'x', sizeof message.sValue);
    looper->sendMessage(handler, message);
    expectPoll({200, 201, 202});
}

TEST_F(LooperTest, KeepsAHandlerUntilItsMessagesAreDoneWithUnlessItIsAWeakOne) {
    wp<Recorder> life;
    {
        const sp<Recorder> brief = new Recorder(seen);
        life = brief;
        looper->sendMessage(brief, {1, ""});
        looper->sendMessageDelayed(1000, brief, {2, ""});
    }
    sp<Recorder> target = new Recorder(seen);
    const sp<PeltoMessageHandler> weak = new PeltoWeakMessageHandler(target);
    looper->sendMessage(weak, {3, ""});
    expectPoll({1, 3});
    looper->sendMessage(weak, {4, ""});
    target.clear();
    expectPoll({});
    EXPECT_NE(nullptr, life.promote());
    looper.clear();
    EXPECT_EQ(nullptr, life.promote()) << "what was never due goes with the looper";
}

TEST_F(LooperTest, AHandlerThatThrowsEndsTheProcess) {
    handler->then = [](const PeltoMessage&) { throw std::runtime_error("from a handler"); };
    post(1);
    EXPECT_DEATH(poll(), "from a handler");
}

TEST_F(LooperTest, WaitsForTheNextMessageAndNotLonger) {
    sim::Clock::get().release();
    const nsecs_t due = systemTime() + 30'000'000;
    looper->sendMessageAtTime(due, handler, {1, ""});
    poll(-1);  // woken by the post, unless posting took longer than the delay
    if (seen.empty()) poll(-1);
    EXPECT_EQ(Codes{1}, seen);
    EXPECT_GE(systemTime(), due);
    postIn(kHour, 2);
    poll(-1);
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll(1)) << "a timeout shorter than the next message stands";
}

TEST_F(LooperTest, BelongsToTheThreadThatPreparedIt) {
    EXPECT_EQ(nullptr, PeltoLooper::getForThread());
    wp<PeltoLooper> bound;
    std::thread([&] {
        const sp<PeltoLooper> first = PeltoLooper::prepare(0);
        bound = first;
        EXPECT_EQ(first, PeltoLooper::prepare(2)) << "only the lowest bit counts";
        EXPECT_TRUE(logLines("KELVO_Looper").empty());
        EXPECT_EQ(first, PeltoLooper::prepare(LOOPER_PREPARE_ALLOW_NON_CALLBACKS));
        EXPECT_FALSE(first->getAllowNonCallbacks());
        PeltoLooper::setForThread(first);
        EXPECT_EQ(first, PeltoLooper::getForThread()) << "binding it again is harmless";
    }).join();
    EXPECT_TRUE(
        logged("W KELVO_Looper: PeltoLooper already prepared for this thread with a "
               "different value for the LOOPER_PREPARE_ALLOW_NON_CALLBACKS option."));
    EXPECT_EQ(nullptr, bound.promote()) << "the binding goes with the thread";
}

TEST_F(LooperTest, AHandlerThreadRunsOneUntilItIsToldToQuit) {
    const sp<HandlerThread> thread = new HandlerThread();
    thread_control::refuse("refused");
    EXPECT_EQ(UNKNOWN_ERROR, thread->start("refused", 0, 0));
    thread->quit();
    thread_control::hold("pelto_looper");
    ASSERT_EQ(OK, thread->start("pelto_looper", 0, 0));
    ASSERT_TRUE(thread_control::awaitHeld("pelto_looper"));
    auto got = std::async(std::launch::async, [&] { return thread->getLooper(); });
    thread_control::release("pelto_looper");
    looper = got.get();
    ASSERT_NE(nullptr, looper) << "waited for it";
    EXPECT_EQ(looper, thread->getLooper());
    EXPECT_FALSE(looper->getAllowNonCallbacks());
    std::promise<void> entered, goOn;
    handler->then = [&](const PeltoMessage& message) {
        if (message.what != 0) return;
        entered.set_value();
        goOn.get_future().wait();
    };
    post(0);
    entered.get_future().wait();
    post(1);
    postIn(kHour, 2);
    auto quit = std::async(std::launch::async, [&] { thread->quit(); });
    goOn.set_value();
    quit.get();
    post(3);
    EXPECT_EQ((Codes{0, 1}), seen) << "the poll in progress delivers what is due";
    EXPECT_EQ(3, handler->getStrongCount()) << "undelivered messages stay in the looper";
}

TEST_F(LooperTest, AQuitWakesAHandlerThread) {
    const sp<HandlerThread> thread = new HandlerThread();
    ASSERT_EQ(OK, thread->start("pelto_looper", 0, 0));
    while (!thread->getLooper()->isPolling()) std::this_thread::yield();
    thread->quit();
    EXPECT_FALSE(thread->isRunning());
    thread->quit();
}

// Other threads change a batch that is being delivered: messages they remove are gone, earlier ones
// they post come first. A nested poll delivers the rest of the batch.
TEST_F(LooperTest, OtherThreadsMayChangeWhatIsDueNext) {
    handler->then = [&](const PeltoMessage& message) {
        EXPECT_TRUE(message.what != 3 || poll() == LOOPER_POLL_CALLBACK);
        if (message.what != 1) return;
        std::thread([&] {
            looper->removeMessages(handler, 2);
            looper->sendMessageAtTime(-1, handler, {10, ""});
            looper->sendMessageAtTime(systemTime() + 1, handler, {11, ""});
        }).join();
    };
    for (int what = 1; what <= 5; ++what) post(what);
    expectPoll({1, 10, 3, 4, 5});
}

// Full contention; the messages of the first poster are never removed.
TEST_F(LooperTest, PostersKeepTheirOrderAndWhatWasRemovedIsNotDeliveredLater) {
    sim::Clock::get().release();
    constexpr int kPosters = 3, kEach = 10000;
    std::atomic<int> posted[kPosters] = {}, removed[kPosters] = {};
    int least[kPosters] = {};  // the least number that may come next
    handler->then = other->then = [&](const PeltoMessage& message) {
        if (message.what < 0) return;
        const int poster = message.what / kEach, number = message.what % kEach;
        EXPECT_TRUE(poster == 0 ? number == least[0] : number >= least[poster]) << message.what;
        least[poster] = std::max(number + 1, removed[poster].load());
    };
    std::vector<std::thread> threads;
    for (int p = 0; p < kPosters; ++p) {
        threads.emplace_back([&, p] {
            for (int i = 0; i < kEach; ++i) {
                looper->sendMessage(p == 0 ? other : handler, {p * kEach + i, ""});
                postIn(kHour, -2);
                posted[p] = i + 1;
            }
        });
    }
    threads.emplace_back([&] {
        while (posted[0] + posted[1] + posted[2] < kPosters * kEach) {
            const int limits[] = {0, posted[1], posted[2]};
            looper->removeMessages(handler);
            for (int p = 0; p < kPosters; ++p) removed[p] = limits[p];
        }
        looper->sendMessage(other, {-1, ""});
    });
    while (seen.empty() || seen.back() != -1) {
        const size_t before = seen.size();
        const int result = poll(-1);
        EXPECT_EQ(result == LOOPER_POLL_CALLBACK, seen.size() > before);
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(kEach, least[0]) << "none lost";
}

}  // namespace
}  // namespace android
