#include <malloc.h>

#include <cstring>
#include <map>
#include <random>

#include "looper/PeltoLooper.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using namespace std::chrono_literals;

// Runs the same random operations on a looper and on its model, a map that keeps equal times in
// posting order. Polls nest up to three deep, and operations fall between any two messages.
class QueueModelTest : public PhoneTest {
  protected:
    struct Handler : PeltoMessageHandler {
        Handler(QueueModelTest& owner, int index) : test(owner), number(index) {}
        void handleMessage(const PeltoMessage& message) override { test.handle(number, message); }
        QueueModelTest& test;
        const int number;
    };

    int below(unsigned limit) { return static_cast<int>(mRandom() % limit); }
    int poll(int timeoutMillis) {
        return mLooper->pollOnce(timeoutMillis, nullptr, nullptr, nullptr);
    }
    bool isDue() { return !mModel.empty() && mModel.begin()->first <= systemTime(); }

    void post() {
        const nsecs_t delay = below(4) != 0 ? 0 : below(200) != 0 ? below(200) - 150 : INT64_MAX;
        const auto uptime = static_cast<nsecs_t>(static_cast<uint64_t>(systemTime()) +
                                                 static_cast<uint64_t>(delay));  // may wrap
        const int number = below(2);
        const sp<PeltoMessageHandler>& handler = mHandlers[number];
        PeltoMessage message{below(50), ""};
        memset(message.sValue, ++mPosted, sizeof message.sValue);
        mWoken |= !mHandling && (mModel.empty() || uptime < mModel.begin()->first);
        mModel.emplace(uptime, std::make_pair(number, message));
        if (below(2) == 0) return mLooper->sendMessageAtTime(uptime, handler, message);
        if (delay == 0) return mLooper->sendMessage(handler, message);
        mLooper->sendMessageDelayed(delay, handler, message);
    }

    void remove() {
        const int number = below(2), what = below(50);
        const bool all = below(10) == 0;
        all ? mLooper->removeMessages(mHandlers[number])
            : mLooper->removeMessages(mHandlers[number], what);
        for (auto item = mModel.begin(); item != mModel.end();) {
            const auto& [handler, message] = item->second;
            const bool gone = handler == number && (all || message.what == what);
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

    void handle(int handler, const PeltoMessage& message) {
        ++mHandled;
        mHandling = true;
        ASSERT_FALSE(HasFailure() || mModel.empty());
        const auto [uptime, posted] = *mModel.begin();
        mModel.erase(mModel.begin());
        ASSERT_LE(uptime, systemTime());
        ASSERT_EQ(posted.first, handler);
        for (int dice = below(100); dice < 30; dice = below(100)) {
            if (dice < 14) post();
            if (dice == 14) advance(1ns);
            if (dice >= 15 && dice < 20) remove();
            if (dice >= 20 && mDepth < 3) deliver();
        }
        ASSERT_EQ(0, memcmp(&posted.second, &message, sizeof message));
    }

    sp<PeltoLooper> mLooper = new PeltoLooper(false);
    sp<Handler> mTarget = new Handler(*this, 1);
    const sp<PeltoMessageHandler> mHandlers[2] = {new Handler(*this, 0),
                                                  new PeltoWeakMessageHandler(mTarget)};
    std::multimap<nsecs_t, std::pair<int, PeltoMessage>> mModel;
    std::mt19937 mRandom;
    int mPosted = 0, mHandled = 0, mDepth = 0;
    bool mHandling = false;  // no post needs to wake
    bool mWoken = false;
};

// Measures the C library's heap; under a sanitizer it means nothing.
size_t heapInUse() {
    const auto heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

TEST_F(QueueModelTest, DeliversWhatANaiveQueueDoesAndGivesABurstsMemoryBack) {
    holdClock();
    constexpr int kBurst = 5000;
    const size_t before = heapInUse();
    while (mPosted < kBurst) post();
    EXPECT_LT(heapInUse() - before,
              kBurst * (sizeof(*mModel.begin()) + sizeof(PeltoMessage) * 5 / 4));
    int growth = 0;
    for (int step = 0; step < 40000 && !HasFailure(); ++step) {
        below(100) < growth ? post() : deliver();
        if (below(100) == 0) mLooper->wake(), mLooper->wake(), mWoken = true;
        const auto held = mHandlers[0]->getStrongCount() + mHandlers[1]->getStrongCount();
        EXPECT_EQ(2 + mModel.size(), static_cast<size_t>(held));
        advance(step % 4000 == 0 ? 200ns : 1ns);  // at times all falls due
        // Bursts and lulls: the mix changes every few hundred steps.
        if (step % 400 == 0) growth = 20 + below(79);
    }
    advance(200ns);
    while (!mModel.empty() && !HasFailure()) deliver();
    EXPECT_LT(heapInUse() - before, 96 * sizeof(MessageEnvelope));

    mTarget.clear();
    mLooper->sendMessage(mHandlers[1], {0, "to a handler that is gone"});
    mLooper->sendMessage(nullptr, {0, "to none"});
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll(0));
    mLooper->sendMessageDelayed(1, mHandlers[0], {0, "dropped with the looper"});
    mLooper.clear();
    EXPECT_EQ(1, mHandlers[0]->getStrongCount());
}

}  // namespace
}  // namespace android
