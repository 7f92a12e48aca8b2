#include <sys/eventfd.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "looper/PeltoLooper.h"
#include "sim/clock.h"
#include "tests/support/phone_test.h"

namespace android {
namespace {

using namespace std::chrono_literals;

PeltoMessage messageOf(int32_t what) {
    PeltoMessage message = {};
    message.what = what;
    return message;
}

// Notes the codes it receives, and does with each what the test wants.
class Recorder : public PeltoMessageHandler {
  public:
    explicit Recorder(std::vector<int>* seen) : mSeen(seen) {}
    void handleMessage(const PeltoMessage& message) override {
        mSeen->push_back(message.what);
        if (then) then(message);
    }
    std::function<void(const PeltoMessage&)> then;

  private:
    std::vector<int>* const mSeen;
};

// A looper polled by the test itself, on a held clock.
class LooperTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        holdClock();
        looper = new PeltoLooper(false);
        handler = new Recorder(&seen);
    }
    void post(int what) { looper->sendMessage(handler, messageOf(what)); }
    void postIn(nsecs_t delay, int what) {
        looper->sendMessageDelayed(delay, handler, messageOf(what));
    }
    int poll(int timeoutMillis = 0) {
        return looper->pollOnce(timeoutMillis, nullptr, nullptr, nullptr);
    }
    // Everything delivered since the last call.
    std::vector<int> delivered() { return std::exchange(seen, {}); }

    using Codes = std::vector<int>;
    std::vector<int> seen;
    sp<PeltoLooper> looper;
    sp<Recorder> handler;
};

TEST_F(LooperTest, DeliversByDueTimeAndEqualTimesInPostingOrder) {
    postIn(20, 1);
    postIn(10, 2);
    postIn(20, 3);
    post(4);
    looper->sendMessageAtTime(-5, handler, messageOf(5));
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ((Codes{5, 4}), delivered());
    advance(10ns);
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(Codes{2}, delivered());
    advance(9ns);
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll());
    advance(1ns);
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ((Codes{1, 3}), delivered());
}

TEST_F(LooperTest, OnlyANewFirstMessageWakes) {
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll());
    for (int i = 0; i < 1000; ++i) looper->wake();
    EXPECT_EQ(LOOPER_POLL_WAKE, poll()) << "many wakes are one";
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll());
    postIn(100, 1);
    EXPECT_EQ(LOOPER_POLL_WAKE, poll());
    postIn(100, 2);
    postIn(101, 3);
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll());
    postIn(99, 4);
    EXPECT_EQ(LOOPER_POLL_WAKE, poll());
    looper->removeMessages(handler);
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll());
}

TEST_F(LooperTest, WhatAHandlerPostsGoesOutInTheSamePollWithoutAWake) {
    handler->then = [&](const PeltoMessage& message) {
        if (message.what < 4) post(message.what + 1);
        if (message.what == 4) looper->removeMessages(handler), postIn(50, 9);
    };
    post(1);
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ((Codes{1, 2, 3, 4}), delivered());
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll()) << "no wake is pending";
    advance(50ns);
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
}

TEST_F(LooperTest, ADeliveredMessageStaysWholeWhateverTheHandlerDoes) {
    int depth = 0;
    handler->then = [&](const PeltoMessage& message) {
        const PeltoMessage before = message;
        looper->sendMessage(handler, message);
        looper->removeMessages(handler, message.what);
        for (int i = 0; i < 100; ++i) looper->sendMessageDelayed(1000, handler, messageOf(i));
        if (++depth < 3) {
            post(message.what + 1);
            EXPECT_EQ(LOOPER_POLL_CALLBACK, poll()) << "polls may nest";
        }
        EXPECT_EQ(0, memcmp(&before, &message, sizeof before));
    };
    PeltoMessage message = messageOf(200);
    memset(message.sValue, 'x', sizeof message.sValue);
    looper->sendMessage(handler, message);
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ((Codes{200, 201, 202}), delivered());
}

TEST_F(LooperTest, RemovesByHandlerAndByCode) {
    std::vector<int> others;
    const sp<Recorder> other = new Recorder(&others);
    for (const int what : {1, 2, 1, 3}) post(what);
    looper->sendMessage(other, messageOf(1));
    looper->removeMessages(handler, 1);
    poll();
    EXPECT_EQ((Codes{2, 3}), delivered());
    EXPECT_EQ(Codes{1}, others);
    post(4);
    looper->sendMessage(other, messageOf(5));
    looper->removeMessages(other);
    poll();
    EXPECT_EQ(Codes{4}, delivered());
    EXPECT_EQ(Codes{1}, others);
}

TEST_F(LooperTest, KeepsAHandlerUntilItsMessageIsDoneWith) {
    std::weak_ptr<int> life;
    {
        auto token = std::make_shared<int>(0);
        life = token;
        const sp<Recorder> brief = new Recorder(&seen);
        brief->then = [token](const PeltoMessage&) {};
        looper->sendMessage(brief, messageOf(1));
        looper->sendMessageDelayed(1000, brief, messageOf(2));
    }
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_FALSE(life.expired());
    looper.clear();
    EXPECT_TRUE(life.expired()) << "what was never due goes with the looper";
    EXPECT_EQ(Codes{1}, delivered());
}

TEST_F(LooperTest, AWeakHandlersMessageIsDroppedOnceItsTargetIsGone) {
    sp<Recorder> target = new Recorder(&seen);
    const sp<PeltoMessageHandler> weak = new PeltoWeakMessageHandler(target);
    looper->sendMessage(weak, messageOf(1));
    poll();
    EXPECT_EQ(Codes{1}, delivered());
    looper->sendMessage(weak, messageOf(2));
    target.clear();
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(Codes{}, delivered());
}

TEST_F(LooperTest, ANullHandlerIsSkippedAndCounts) {
    looper->sendMessage(nullptr, messageOf(1));
    post(2);
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(Codes{2}, delivered());
}

TEST_F(LooperTest, ADelayBeyondTheEndOfTimeWraps) {
    postIn(INT64_MAX, 1);
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(Codes{1}, delivered());
}

TEST_F(LooperTest, WaitsForTheNextMessageAndNotLonger) {
    sim::Clock::get().release();
    const nsecs_t due = systemTime() + 30'000'000;
    looper->sendMessageAtTime(due, handler, messageOf(1));
    poll(-1);  // the wake of its posting, unless that took longer than its delay
    if (seen.empty()) {
        EXPECT_EQ(LOOPER_POLL_CALLBACK, poll(-1));
    }
    EXPECT_GE(systemTime(), due);

    postIn(3'600'000'000'000, 2);
    poll(-1);
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll(1)) << "a timeout shorter than the next message stands";
}

TEST_F(LooperTest, PollAllGoesOnWhileHandlersRunUntilItsTimeIsUp) {
    const int ready = eventfd(1, EFD_NONBLOCK);
    int calls = 0;
    struct Step : PeltoLooperCallback {
        explicit Step(std::function<void()> body) : mBody(std::move(body)) {}
        int32_t handleEvent(int32_t, int32_t, void*) override { return mBody(), 1; }
        const std::function<void()> mBody;
    };
    const auto step = [&] { advance(60ms), ++calls; };
    looper->addFd(ready, 0, LOOPER_EVENT_INPUT, new Step(step), nullptr);
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, looper->pollAll(200, nullptr, nullptr, nullptr));
    EXPECT_EQ(4, calls) << "at 60, 120, 180 and 240 ms";
    close(ready);
}

TEST_F(LooperTest, BelongsToTheThreadThatPreparedIt) {
    EXPECT_EQ(nullptr, PeltoLooper::getForThread());
    wp<PeltoLooper> bound;
    std::thread([&] {
        const sp<PeltoLooper> first = PeltoLooper::prepare(0);
        bound = first;
        EXPECT_EQ(first, PeltoLooper::prepare(2)) << "only the lowest bit counts";
        EXPECT_EQ(0u, logLines("KELVO_Looper").size());
        EXPECT_EQ(first, PeltoLooper::prepare(LOOPER_PREPARE_ALLOW_NON_CALLBACKS));
        EXPECT_FALSE(first->getAllowNonCallbacks());
        PeltoLooper::setForThread(first);
        EXPECT_EQ(first, PeltoLooper::getForThread()) << "binding it again is harmless";
    }).join();
    EXPECT_TRUE(
        logged(ANDROID_LOG_WARN, "KELVO_Looper",
               "PeltoLooper already prepared for this thread with a different value for the "
               "LOOPER_PREPARE_ALLOW_NON_CALLBACKS option."));
    EXPECT_EQ(nullptr, bound.promote()) << "the binding goes with the thread";
}

TEST_F(LooperTest, PostersOnOtherThreadsKeepTheirOwnOrder) {
    sim::Clock::get().release();
    constexpr int kPosters = 3;
    constexpr int kEach = 2000;
    std::vector<std::thread> posters;
    for (int p = 0; p < kPosters; ++p) {
        posters.emplace_back([&, p] {
            const sp<PeltoMessageHandler> removed = new Recorder(nullptr);
            for (int i = 0; i < kEach; ++i) {
                looper->sendMessageDelayed(3'600'000'000'000, removed, messageOf(0));
                post(p * kEach + i);
                if (i % 64 == 0) looper->removeMessages(removed);
            }
            looper->removeMessages(removed);
        });
    }
    while (seen.size() < size_t{kPosters * kEach}) poll(-1);
    for (auto& poster : posters) poster.join();
    int next[kPosters] = {};
    for (const int what : seen) EXPECT_EQ(next[what / kEach]++, what % kEach);
}

// Other threads reach into a batch that is being delivered: what they remove is gone, what they put
// before it comes first.
TEST_F(LooperTest, OtherThreadsMayChangeWhatIsDueNext) {
    handler->then = [&](const PeltoMessage& message) {
        if (message.what == 1) {
            std::thread([&] {
                looper->removeMessages(handler, 2);
                looper->sendMessageAtTime(-1, handler, messageOf(10));
                looper->sendMessageAtTime(systemTime() + 1, handler, messageOf(11));
            }).join();
        }
    };
    for (int what = 1; what <= 5; ++what) post(what);
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ((Codes{1, 10, 3, 4, 5}), delivered());
}

// Whatever a remover has seen removed is not delivered afterwards, under full contention.
TEST_F(LooperTest, WhatWasRemovedIsNotDeliveredLater) {
    sim::Clock::get().release();
    std::atomic<int> removedUpTo{-1};
    std::atomic<int> posted{-1};
    int gone = -1;  // removed before the previous handler returned
    handler->then = [&](const PeltoMessage& message) {
        if (message.what == -1) return;
        EXPECT_GT(message.what, gone);
        gone = removedUpTo;
    };
    std::thread poster([&] {
        for (int i = 0; i < 20000; ++i) {
            post(i);
            posted = i;
        }
    });
    std::thread remover([&] {
        while (posted < 19999) {
            const int limit = posted;
            looper->removeMessages(handler);
            removedUpTo = limit;
        }
        looper->sendMessage(handler, messageOf(-1));
    });
    while (seen.empty() || seen.back() != -1) poll(-1);
    poster.join();
    remover.join();
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end() - 1));
}

}  // namespace
}  // namespace android
