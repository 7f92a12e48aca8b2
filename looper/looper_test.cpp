#include <sys/eventfd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <random>
#include <stdexcept>
#include <thread>

#include "bench/allocations.h"
#include "looper/HandlerThread.h"
#include "sim/base/fd.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using namespace std::chrono_literals;
constexpr char kTag[] = "KELVO_Looper";
constexpr nsecs_t kHour = 3'600'000'000'000;

// Passes messages and events on to the test.
struct Receiver : PeltoMessageHandler, PeltoLooperCallback {
    explicit Receiver(std::function<int(int)> toDo) : body(std::move(toDo)) {}
    void handleMessage(const PeltoMessage& message) override { body(message.what); }
    int32_t handleEvent(int32_t, int32_t events, void*) override { return body(events); }
    const std::function<int(int)> body;
};

// A looper that the test polls, and two descriptors, each with an event to read.
class LooperTest : public PhoneTest {
  protected:
    int poll(int timeoutMillis = 0) {
        return looper->pollOnce(timeoutMillis, nullptr, nullptr, nullptr);
    }
    void post(int what) { looper->sendMessage(handler, {what, ""}); }
    void postIn(nsecs_t delay, int what) { looper->sendMessageDelayed(delay, handler, {what, ""}); }
    int watch(int fd, std::function<int(int)> body) {
        const sp<PeltoLooperCallback> callback = new Receiver(std::move(body));
        return looper->addFd(fd, 0, LOOPER_EVENT_INPUT, callback, nullptr);
    }

    sp<PeltoLooper> looper = new PeltoLooper(true);
    std::vector<int> seen;
    std::function<void(int)> then = [](int) {};  // runs at each message
    const sp<Receiver> handler = new Receiver([this](int what) {
        seen.push_back(what);
        then(what);
        return 0;
    });
    sim::Fd bell{eventfd(1, EFD_NONBLOCK)}, other{eventfd(1, EFD_NONBLOCK)};
};

TEST_F(LooperTest, AHandlerThatThrowsEndsTheProcess) {
    then = [](int) { throw std::runtime_error("from a handler"); };
    post(1);
    EXPECT_DEATH(poll(), "from a handler");
}

TEST_F(LooperTest, WaitsForTheNextMessageAndNotLonger) {
    const nsecs_t due = systemTime() + 30'000'000;
    looper->sendMessageAtTime(due, handler, {1, ""});
    poll(-1);  // woken by the post, unless posting took longer than the delay
    if (seen.empty()) poll(-1);
    EXPECT_EQ(std::vector<int>{1}, seen);
    EXPECT_GE(systemTime(), due);
    postIn(kHour, 2);
    poll(-1);
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll(1)) << "a timeout shorter than the next message stands";
}

TEST_F(LooperTest, BelongsToTheThreadThatPreparedIt) {
    wp<PeltoLooper> bound;
    std::thread([&] {
        EXPECT_EQ(nullptr, PeltoLooper::getForThread());
        const sp<PeltoLooper> first = PeltoLooper::prepare(0);
        bound = first;
        EXPECT_EQ(first, PeltoLooper::prepare(2)) << "only the lowest bit counts";
        EXPECT_EQ(first, PeltoLooper::prepare(LOOPER_PREPARE_ALLOW_NON_CALLBACKS));
        PeltoLooper::setForThread(first);  // harmless
    }).join();
    EXPECT_EQ(
        "W PeltoLooper already prepared for this thread with a different value for the "
        "LOOPER_PREPARE_ALLOW_NON_CALLBACKS option.\n",
        said(kTag));
    EXPECT_EQ(nullptr, bound.promote()) << "the binding goes with the thread";
}

TEST_F(LooperTest, AHandlerThreadRunsOneUntilItIsToldToQuit) {
    const sp<HandlerThread> busy = new HandlerThread(), idle = new HandlerThread();
    busy->quit();  // not running
    for (const auto& thread : {busy, idle}) ASSERT_EQ(OK, thread->start("pelto_looper", 0, 0));
    while (!idle->getLooper()->isPolling()) std::this_thread::yield();
    idle->quit();
    EXPECT_FALSE(idle->isRunning());

    looper = busy->getLooper();
    EXPECT_FALSE(looper->getAllowNonCallbacks());
    std::promise<void> entered, goOn;
    then = [&](int what) {
        if (what != 0) return;
        entered.set_value();
        goOn.get_future().wait();
    };
    post(0);
    entered.get_future().wait();
    EXPECT_FALSE(looper->isPolling());
    post(1);
    postIn(kHour, 2);
    std::thread quit([&] { busy->quit(); });
    goOn.set_value();
    quit.join();
    post(3);
    EXPECT_EQ((std::vector<int>{0, 1}), seen) << "the poll in progress delivers what is due";
    EXPECT_EQ(3, handler->getStrongCount()) << "undelivered messages stay in the looper";
}

// Full contention between the looper, a thread that posts, and one that removes the messages of
// `handler`; those of another handler all arrive.
TEST_F(LooperTest, DeliversInPostingOrderAndNothingThatWasRemoved) {
    constexpr int kEach = 15000;
    std::atomic<int> posted{0}, removed{0};
    int kept = 0, least = 0;  // the numbers that may come next
    const sp<Receiver> keeper = new Receiver([&](int number) {
        EXPECT_EQ(kept, number);
        return kept = number + 1;
    });
    then = [&](int number) {
        EXPECT_GE(number, least);
        least = std::max(number + 1, removed.load());
    };
    std::thread posts([&] {
        for (; posted < kEach; ++posted) {
            post(posted);
            looper->sendMessage(keeper, {posted, ""});
            postIn(kHour, 0);
        }
    });
    std::thread removes([&] {
        while (removed < kEach) {
            const int limit = posted;
            looper->removeMessages(handler);
            looper->removeMessages(keeper, -1);
            removed = limit;
        }
    });
    while (kept < kEach) poll(-1);
    posts.join();
    removes.join();
}

TEST_F(LooperTest, ReportsAWatchWithoutCallbackByItsIdentifier) {
    int cookie, fd = -1, events = -1;
    void* data = nullptr;
    ASSERT_EQ(1, looper->addFd(bell.get(), 5, LOOPER_EVENT_INPUT, nullptr, &cookie));
    ASSERT_EQ(1, looper->addFd(other.get(), 6, LOOPER_EVENT_OUTPUT, nullptr, nullptr));
    // Both come from one wait, one a call.
    EXPECT_EQ(5, looper->pollOnce(0, &fd, &events, &data));
    EXPECT_TRUE(fd == bell.get() && events == LOOPER_EVENT_INPUT && data == &cookie);
    EXPECT_EQ(1, looper->removeFd(other.get()));
    EXPECT_EQ(6, looper->pollOnce(0, &fd, &events, &data));
    EXPECT_TRUE(fd == other.get() && events == LOOPER_EVENT_OUTPUT && data == nullptr);
    EXPECT_EQ(1, looper->removeFd(bell.get()));
    EXPECT_EQ(0, looper->removeFd(bell.get()));
    data = &cookie;
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, looper->pollOnce(0, &fd, &events, &data));
    EXPECT_TRUE(fd == 0 && events == 0 && data == nullptr);

    EXPECT_EQ(-1, looper->addFd(bell.get(), -1, LOOPER_EVENT_INPUT, nullptr, nullptr));
    EXPECT_EQ(-1, watch(-1, [](int) { return 1; }));
    looper = new PeltoLooper(false);
    EXPECT_EQ(-1, looper->addFd(bell.get(), 5, LOOPER_EVENT_INPUT, nullptr, nullptr));
    EXPECT_EQ(
        "E Invalid attempt to set NULL callback with ident < 0.\n"
        "E Error adding epoll events for fd -1: Bad file descriptor\n"
        "E Invalid attempt to set NULL callback but not allowed for this looper.\n",
        said(kTag));
    EXPECT_EQ(INT32_MIN, requestSeqAfter(INT32_MAX));
    EXPECT_EQ(0, requestSeqAfter(-2)) << "-1 is any watch";
}

TEST_F(LooperTest, CallsBackAtEachPollUntilTheCallbackSaysNoOrTheTimeIsUp) {
    holdClock();
    int calls = 0;
    const auto call = [](int, int, void* data) {
        sim::Clock::get().advance(60ms);
        return ++*static_cast<int*>(data) % 6;
    };
    ASSERT_EQ(1, looper->addFd(bell.get(), 7, LOOPER_EVENT_INPUT, call, &calls));
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, looper->pollAll(200, nullptr, nullptr, nullptr));
    EXPECT_EQ(4, calls) << "at 60, 120, 180 and 240 ms";
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, looper->pollAll(0, nullptr, nullptr, nullptr));
    EXPECT_EQ(6, calls);
}

TEST_F(LooperTest, AWatchAddedAgainReplacesTheOldOne) {
    std::string calls;
    const sp<PeltoLooperCallback> first = new Receiver([&](int) {
        calls += "first ";
        watch(bell.get(), [&](int events) { return calls += std::to_string(events), 0; });
        return 0;  // ends the old watch, not the one just made
    });
    ASSERT_EQ(1, looper->addFd(bell.get(), 0, LOOPER_EVENT_INPUT, first, nullptr));
    poll();
    EXPECT_EQ(1, first->getStrongCount()) << "dropped right after its call";
    poll();
    poll();
    EXPECT_EQ("first 1", calls);
}

TEST_F(LooperTest, RebuildsItsSetAfterADescriptorWasClosedAndClosesItsOwn) {
    const long before = openFiles();
    const int number = bell.get();
    int calls = 0;
    ASSERT_EQ(1, watch(number, [](int) { return 1; }));
    bell = sim::Fd();
    bell = sim::Fd(eventfd(1, EFD_NONBLOCK));
    ASSERT_EQ(number, bell.get()) << "its number is used again";
    ASSERT_EQ(1, watch(number, [&](int) { return ++calls; }));
    EXPECT_EQ(LOOPER_POLL_WAKE, poll()) << "the rebuild discards what its wait brought";
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(1, calls);

    bell = sim::Fd();
    EXPECT_EQ(-1, watch(number, [](int) { return 1; }));
    ASSERT_EQ(1, watch(other.get(), [&](int) { return other = sim::Fd(), 0; }));
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(LOOPER_POLL_WAKE, poll(-1)) << "a callback closed its descriptor";
    EXPECT_EQ(-1, looper->removeFd(number));
    const std::string events = " epoll events for fd " + std::to_string(number);
    const std::string error = ": Bad file descriptor\n";
    EXPECT_EQ("E Error modifying" + events + error + "E Error adding" + events +
                  " while rebuilding epoll set" + error + "E Error removing" + events + error,
              said(kTag));
    EXPECT_EQ(before - 2, openFiles());
    looper.clear();
    EXPECT_EQ(before - 4, openFiles()) << "its wake descriptor and its epoll set";
}

TEST_F(LooperTest, MessagesPrecedeCallbacksOfWhichNoneIsLostInANestedPoll) {
    std::string order;
    const sim::Fd third(eventfd(1, EFD_NONBLOCK));
    watch(bell.get(), [&](int) { return poll(), order += "removed meanwhile", 1; });
    for (const int fd : {other.get(), third.get()}) {
        watch(fd, [&, fd](int) {
            uint64_t counter;
            return eventfd_read(fd, &counter), order += "nested, ", 1;
        });
    }
    then = [&](int) {
        std::thread([&] { looper->removeFd(bell.get()); }).join();
        order += "message, ";
    };
    post(1);
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll());
    EXPECT_EQ("message, nested, nested, removed meanwhile", order);
}

// Runs the same random operations on a looper and on its model, a map that keeps equal times in
// posting order. Polls nest up to three deep, and operations fall between any two messages.
class QueueModelTest : public LooperTest {
  protected:
    struct Handler : PeltoMessageHandler {
        Handler(QueueModelTest& owner, int index) : test(owner), number(index) {}
        void handleMessage(const PeltoMessage& message) override { test.handle(number, message); }
        QueueModelTest& test;
        const int number;
    };

    int below(unsigned limit) { return static_cast<int>(mRandom() % limit); }
    bool isDue() { return !mModel.empty() && mModel.begin()->first <= systemTime(); }

    void post() {
        const nsecs_t delay = below(4) != 0 ? 0 : below(200) != 0 ? below(200) - 150 : INT64_MAX;
        const auto uptime = static_cast<nsecs_t>(static_cast<uint64_t>(systemTime()) +
                                                 static_cast<uint64_t>(delay));  // may wrap
        const int number = below(2);
        const sp<PeltoMessageHandler>& target = mHandlers[number];
        PeltoMessage message{below(50), ""};
        memset(message.sValue, ++mPosted, sizeof message.sValue);
        mWoken |= !mHandling && (mModel.empty() || uptime < mModel.begin()->first);
        mModel.emplace(uptime, std::make_pair(number, message));
        if (below(2) == 0) return looper->sendMessageAtTime(uptime, target, message);
        if (delay == 0) return looper->sendMessage(target, message);
        looper->sendMessageDelayed(delay, target, message);
    }

    void remove() {
        const int number = below(2), what = below(50);
        const bool all = below(10) == 0;
        all ? looper->removeMessages(mHandlers[number])
            : looper->removeMessages(mHandlers[number], what);
        for (auto item = mModel.begin(); item != mModel.end();) {
            const auto& [target, message] = item->second;
            const bool gone = target == number && (all || message.what == what);
            item = gone ? mModel.erase(item) : std::next(item);
        }
    }

    void deliver() {
        const int before = mHandled;
        const int idle = mWoken ? LOOPER_POLL_WAKE : LOOPER_POLL_TIMEOUT;
        // The outer poll never sleeps while there is work.
        const int timeout = mDepth == 0 && (mWoken || isDue()) ? -1 : 0;
        mWoken = false;
        ++mDepth;
        const int result = poll(timeout);
        --mDepth;
        if (mHandled > before) mHandling = false;
        ASSERT_EQ(mHandled > before ? LOOPER_POLL_CALLBACK : idle, result);
        ASSERT_FALSE(isDue());
    }

    void handle(int number, const PeltoMessage& message) {
        ++mHandled;
        mHandling = true;
        ASSERT_FALSE(HasFailure() || mModel.empty());
        const auto [uptime, posted] = *mModel.begin();
        mModel.erase(mModel.begin());
        ASSERT_LE(uptime, systemTime());
        ASSERT_EQ(posted.first, number);
        for (int dice = below(100); dice < 30; dice = below(100)) {
            if (dice < 14) post();
            if (dice == 14) advance(1ns);
            if (dice >= 15 && dice < 20) remove();
            if (dice >= 20 && mDepth < 3) deliver();
        }
        ASSERT_EQ(0, memcmp(&posted.second, &message, sizeof message));
    }

    sp<Handler> mTarget = new Handler(*this, 1);
    const sp<PeltoMessageHandler> mHandlers[2] = {new Handler(*this, 0),
                                                  new PeltoWeakMessageHandler(mTarget)};
    std::multimap<nsecs_t, std::pair<int, PeltoMessage>> mModel;
    std::mt19937 mRandom;
    int mPosted = 0, mHandled = 0, mDepth = 0;
    bool mHandling = false;  // no post needs to wake
    bool mWoken = false;
};

TEST_F(QueueModelTest, DeliversWhatANaiveQueueDoesAndGivesABurstsMemoryBack) {
    holdClock();
    const size_t before = bench::heapInUse();
    while (mPosted < 5000) post();
    int growth = 0;
    for (int step = 0; step < 40000 && !HasFailure(); ++step) {
        below(100) < growth ? post() : deliver();
        if (below(100) == 0) looper->wake(), looper->wake(), mWoken = true;
        const auto held = mHandlers[0]->getStrongCount() + mHandlers[1]->getStrongCount();
        EXPECT_EQ(2 + mModel.size(), static_cast<size_t>(held));
        advance(step % 4000 == 0 ? 200ns : 1ns);  // at times all falls due
        // Bursts and lulls: the mix changes every few hundred steps.
        if (step % 400 == 0) growth = 20 + below(79);
    }
    advance(200ns);
    while (!mModel.empty() && !HasFailure()) deliver();
    EXPECT_LT(bench::heapInUse() - before, (1u << 20) + 96 * sizeof(MessageEnvelope));
    uint64_t made[2];
    for (uint64_t& count : made) {
        for (int i = 0; i < 500; ++i) looper->sendMessage(nullptr, {});
        poll(0);
        count = bench::allocationsOfThread();
    }
    EXPECT_EQ(made[0], made[1]) << "a burst takes what the last one has left";
    for (int rest = 0; rest < 24; ++rest) poll(0);
    EXPECT_LT(bench::heapInUse() - before, 96 * sizeof(MessageEnvelope));

    mTarget.clear();
    looper->sendMessage(mHandlers[1], {0, "to a handler that is gone"});
    looper->sendMessage(nullptr, {0, "to none"});
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll(0));
    looper->sendMessageDelayed(1, mHandlers[0], {0, "dropped with the looper"});
    looper.clear();
    EXPECT_EQ(1, mHandlers[0]->getStrongCount());
}

}  // namespace
}  // namespace android
