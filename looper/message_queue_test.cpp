#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <random>

#include "looper/MessageQueue.h"

namespace android {
namespace {

class NullHandler : public PeltoMessageHandler {
    void handleMessage(const PeltoMessage&) override {}
};

// What the queue must do, written the plain way.
class NaiveQueue {
  public:
    struct Item {
        nsecs_t uptime;
        const PeltoMessageHandler* handler;
        int32_t what;
    };

    void insert(const Item& item) {
        size_t i = 0;
        while (i < items.size() && item.uptime >= items[i].uptime) ++i;
        items.insert(items.begin() + static_cast<ptrdiff_t>(i), item);
    }
    template <typename Wanted>
    void remove(Wanted wanted) {
        items.erase(std::remove_if(items.begin(), items.end(), wanted), items.end());
    }

    std::deque<Item> items;
};

PeltoMessage messageOf(int32_t what) {
    PeltoMessage message = {};
    message.what = what;
    snprintf(message.sValue, sizeof message.sValue, "message %d", what);
    message.sValue[sizeof message.sValue - 1] = static_cast<char>('a' + what % 26);
    return message;
}

// A queue and its model under the same random operations. Delivery nests up to three polls deep,
// and operations fall between any two messages, as they do from inside handlers.
class Comparison {
  public:
    explicit Comparison(unsigned seed) : mRandom(seed) {}

    void run(int steps) {
        for (; mStep < steps && !testing::Test::HasFailure(); ++mStep) {
            // Bursts and lulls: the mix changes every few hundred steps.
            if (mStep % 400 == 0) mGrowth = 20 + below(75);
            if (below(100) < mGrowth) {
                insertOne();
            } else {
                deliver(0);
            }
        }
        for (; !mQueue.isEmpty() && !testing::Test::HasFailure(); mStep += 1000) deliver(0);
        EXPECT_TRUE(mModel.items.empty());
    }

  private:
    int32_t below(unsigned limit) { return static_cast<int32_t>(mRandom() % limit); }
    const sp<PeltoMessageHandler>& anyHandler() { return mHandlers[below(3)]; }

    void insertOne() {
        const nsecs_t uptime = below(4) != 0 ? mStep : mStep + below(200) - 150;
        const sp<PeltoMessageHandler>& handler = anyHandler();
        const int32_t what = below(50);
        mModel.insert({uptime, handler.get(), what});
        mQueue.insert(uptime, handler, messageOf(what));
    }

    void removeSome() {
        const sp<PeltoMessageHandler>& handler = anyHandler();
        const int32_t what = below(50);
        const bool all = below(10) == 0;
        if (all) {
            mQueue.remove(handler);
        } else {
            mQueue.remove(handler, what);
        }
        mModel.remove([&](const auto& item) {
            return item.handler == handler.get() && (all || item.what == what);
        });
    }

    // Everything due by now, as the looper does it.
    void deliver(int depth) {
        mQueue.revokeLease();
        while (!mQueue.isEmpty() && mQueue.firstUptime() <= mStep) {
            Lease lease;
            mQueue.grant(mStep, &lease);
            while (MessageEnvelope* const envelope = lease.claim()) handle(envelope, depth);
            mQueue.settle(&lease);
        }
        ASSERT_EQ(mModel.items.size(), mQueue.size());
        if (!mQueue.isEmpty()) {
            ASSERT_EQ(mModel.items.front().uptime, mQueue.firstUptime());
        }
    }

    void handle(MessageEnvelope* envelope, int depth) {
        ASSERT_FALSE(mModel.items.empty());
        const NaiveQueue::Item expected = mModel.items.front();
        mModel.items.pop_front();
        ASSERT_EQ(expected.uptime, envelope->uptime);
        ASSERT_EQ(expected.handler, envelope->handler.get());
        for (int32_t dice = below(100); dice < 30; dice = below(100)) {
            if (dice < 15) insertOne();
            if (dice >= 15 && dice < 20) removeSome();
            if (dice >= 20 && depth < 2) deliver(depth + 1);
        }
        const PeltoMessage message = messageOf(expected.what);
        ASSERT_EQ(0, memcmp(&message, &envelope->message, sizeof message));
        envelope->handler.clear();
    }

    const sp<PeltoMessageHandler> mHandlers[3] = {new NullHandler(), new NullHandler(), nullptr};
    std::mt19937 mRandom;
    MessageQueue mQueue;
    NaiveQueue mModel;
    int mStep = 0;
    int mGrowth = 50;
};

TEST(MessageQueueTest, BehavesAsANaiveQueueUnderRandomOperations) {
    for (unsigned seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(seed);
        Comparison(seed).run(4000);
    }
}

TEST(MessageQueueTest, HoldsLittleMoreThanWhatWaitsAndGivesABurstBack) {
    MessageQueue queue;
    const sp<PeltoMessageHandler> handler = new NullHandler();
    constexpr size_t kBurst = 20000;
    for (size_t i = 0; i < kBurst; ++i)
        queue.insert(static_cast<nsecs_t>(i), handler, messageOf(0));
    EXPECT_LT(queue.footprint(), kBurst * sizeof(PeltoMessage) * 5 / 4);
    while (!queue.isEmpty()) {
        Lease lease;
        queue.grant(INT64_MAX, &lease);
        while (MessageEnvelope* const envelope = lease.claim()) envelope->handler.clear();
        queue.settle(&lease);
    }
    EXPECT_LT(queue.footprint(), 64 * sizeof(MessageEnvelope));
    EXPECT_EQ(1, handler->getStrongCount());
}

}  // namespace
}  // namespace android
