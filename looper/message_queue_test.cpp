#include <gtest/gtest.h>
#include <malloc.h>

#include <cstring>
#include <map>
#include <random>

#include "looper/MessageQueue.h"

namespace android {
namespace {

class NullHandler : public PeltoMessageHandler {
    void handleMessage(const PeltoMessage&) override {}
};

PeltoMessage messageOf(int32_t what) {
    PeltoMessage message{what, ""};
    snprintf(message.sValue, sizeof message.sValue, "message %d", what);
    message.sValue[sizeof message.sValue - 1] = static_cast<char>('a' + what % 26);
    return message;
}

// Runs the same random operations on a queue and on its model, a map that keeps equal times in
// insertion order. Delivery nests up to three polls deep, and operations fall between any two
// messages, as they do from inside handlers.
class Comparison {
  public:
    explicit Comparison(unsigned seed) : mRandom(seed) {}

    void run(int steps) {
        for (; mStep < steps && !testing::Test::HasFailure(); ++mStep) {
            // Bursts and lulls: the mix changes every few hundred steps.
            if (mStep % 400 == 0) mGrowth = 20 + below(75);
            below(100) < mGrowth ? insertOne() : deliver(0);
        }
        for (; !mQueue.isEmpty() && !testing::Test::HasFailure(); mStep += 1000) deliver(0);
        EXPECT_TRUE(mModel.empty());
    }

  private:
    int32_t below(unsigned limit) { return static_cast<int32_t>(mRandom() % limit); }
    const sp<PeltoMessageHandler>& anyHandler() { return mHandlers[below(3)]; }

    void insertOne() {
        const nsecs_t uptime = below(4) != 0 ? mStep : mStep + below(200) - 150;
        const sp<PeltoMessageHandler>& handler = anyHandler();
        const int32_t what = below(50);
        mModel.emplace(uptime, std::make_pair(handler.get(), what));
        mQueue.insert(uptime, mStep, handler, messageOf(what));
    }

    void removeSome() {
        const sp<PeltoMessageHandler>& handler = anyHandler();
        const int32_t what = below(50);
        const bool all = below(10) == 0;
        all ? mQueue.remove(handler) : mQueue.remove(handler, what);
        for (auto item = mModel.begin(); item != mModel.end();) {
            const auto& [target, code] = item->second;
            const bool gone = target == handler.get() && (all || code == what);
            item = gone ? mModel.erase(item) : std::next(item);
        }
    }

    // Delivers everything that is due, as the looper does.
    void deliver(int depth) {
        mQueue.revokeLease();
        while (!mQueue.isEmpty() && mQueue.firstUptime() <= mStep) {
            Lease lease;
            mQueue.grant(mStep, &lease);
            while (MessageEnvelope* const envelope = lease.claim()) handle(envelope, depth);
            mQueue.settle(&lease);
        }
        ASSERT_EQ(mModel.size(), mQueue.size());
        ASSERT_TRUE(mQueue.isEmpty() || mModel.begin()->first == mQueue.firstUptime());
    }

    void handle(MessageEnvelope* envelope, int depth) {
        ASSERT_FALSE(mModel.empty());
        const auto [uptime, item] = *mModel.begin();
        mModel.erase(mModel.begin());
        ASSERT_EQ(uptime, envelope->uptime);
        ASSERT_EQ(item.first, envelope->handler.get());
        for (int32_t dice = below(100); dice < 30; dice = below(100)) {
            if (dice < 15) insertOne();
            if (dice >= 15 && dice < 20) removeSome();
            if (dice >= 20 && depth < 2) deliver(depth + 1);
        }
        const PeltoMessage message = messageOf(item.second);
        ASSERT_EQ(0, memcmp(&message, &envelope->message, sizeof message));
        envelope->handler.clear();
    }

    const sp<PeltoMessageHandler> mHandlers[3] = {new NullHandler(), new NullHandler(), nullptr};
    std::mt19937 mRandom;
    MessageQueue mQueue;
    std::multimap<nsecs_t, std::pair<const PeltoMessageHandler*, int32_t>> mModel;
    int mStep = 0;
    int mGrowth = 50;
};

TEST(MessageQueueTest, BehavesAsANaiveQueueUnderRandomOperations) {
    for (unsigned seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(seed);
        Comparison(seed).run(4000);
    }
}

// Measures the C library's heap; under a sanitizer it means nothing.
size_t heapInUse() {
    const auto heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

TEST(MessageQueueTest, HoldsLittleMoreThanWhatWaitsAndGivesABurstBack) {
    const size_t before = heapInUse();
    MessageQueue queue;
    const sp<PeltoMessageHandler> handler = new NullHandler();
    constexpr size_t kBurst = 20000;
    for (size_t i = 0; i < kBurst; ++i)
        queue.insert(static_cast<nsecs_t>(i), 0, handler, messageOf(0));
    queue.insert(INT64_MAX, 0, handler, messageOf(0));
    EXPECT_LT(heapInUse() - before, kBurst * sizeof(PeltoMessage) * 5 / 4);
    while (queue.size() > 1) {
        Lease lease;
        queue.grant(INT64_MAX - 1, &lease);
        while (MessageEnvelope* const envelope = lease.claim()) envelope->handler.clear();
        queue.settle(&lease);
    }
    queue.shrink();
    EXPECT_LT(heapInUse() - before, 96 * sizeof(MessageEnvelope));
    queue.remove(handler);
    EXPECT_EQ(1, handler->getStrongCount());
}

}  // namespace
}  // namespace android
