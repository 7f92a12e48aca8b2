#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <vector>

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

    bool insert(const Item& item) {
        size_t i = 0;
        while (i < items.size() && item.uptime >= items[i].uptime) ++i;
        items.insert(items.begin() + static_cast<ptrdiff_t>(i), item);
        return i == 0;
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

// Takes messages out of the queue under test and keeps some of them for a while.
class Pins {
  public:
    explicit Pins(MessageQueue& queue) : mQueue(queue) {}

    void take(const NaiveQueue::Item& expected) {
        MessageEnvelope* envelope = mQueue.takeFirst();
        EXPECT_EQ(expected.uptime, envelope->uptime);
        EXPECT_EQ(expected.handler, envelope->handler.get());
        mPinned.push_back({envelope, messageOf(expected.what)});
    }
    void giveBack(size_t index) {
        const Pin pin = mPinned[index];
        EXPECT_EQ(0, memcmp(&pin.expected, &pin.envelope->message, sizeof(PeltoMessage)));
        mPinned.erase(mPinned.begin() + static_cast<ptrdiff_t>(index));
        pin.envelope->handler.clear();
        mQueue.giveBack(pin.envelope);
    }
    size_t size() const { return mPinned.size(); }

  private:
    struct Pin {
        MessageEnvelope* envelope;
        PeltoMessage expected;
    };
    MessageQueue& mQueue;
    std::vector<Pin> mPinned;
};

// Bursts and lulls: the mix of operations changes every few hundred steps.
void compareWithModel(unsigned seed, int steps) {
    std::mt19937 random(seed);
    const auto below = [&](unsigned limit) { return static_cast<int32_t>(random() % limit); };
    const sp<PeltoMessageHandler> handlers[] = {new NullHandler(), new NullHandler(), nullptr};
    MessageQueue queue;
    NaiveQueue model;
    Pins pins(queue);
    int growth = 60;
    for (int step = 0; step < steps; ++step) {
        if (step % 400 == 0) growth = 20 + below(75);
        const int32_t dice = below(100);
        const sp<PeltoMessageHandler>& handler = handlers[below(3)];
        if (dice < growth) {
            const nsecs_t uptime = below(4) != 0 ? step : below(1000);
            const int32_t what = below(50);
            ASSERT_EQ(model.insert({uptime, handler.get(), what}),
                      queue.insert(uptime, handler, messageOf(what)));
        } else if (dice < 97) {
            if (!queue.isEmpty()) {
                pins.take(model.items.front());
                model.items.pop_front();
            }
            if (pins.size() > 5) pins.giveBack(static_cast<size_t>(below(6)));
        } else if (dice < 99) {
            const int32_t what = below(50);
            queue.remove(handler, what);
            model.remove([&](const auto& item) {
                return item.handler == handler.get() && item.what == what;
            });
        } else if (below(20) == 0) {
            queue.remove(handler);
            model.remove([&](const auto& item) { return item.handler == handler.get(); });
        }
        ASSERT_EQ(model.items.size(), queue.size());
        if (!queue.isEmpty()) {
            ASSERT_EQ(model.items.front().uptime, queue.firstUptime());
        }
    }
    while (!queue.isEmpty()) {
        pins.take(model.items.front());
        model.items.pop_front();
    }
    while (pins.size() > 0) pins.giveBack(0);
}

TEST(MessageQueueTest, BehavesAsANaiveQueueUnderRandomOperations) {
    for (unsigned seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(seed);
        compareWithModel(seed, 4000);
        if (HasFailure()) return;
    }
}

TEST(MessageQueueTest, HoldsLittleMoreThanWhatWaitsAndGivesABurstBack) {
    MessageQueue queue;
    const sp<PeltoMessageHandler> handler = new NullHandler();
    constexpr size_t kBurst = 20000;
    for (size_t i = 0; i < kBurst; ++i)
        queue.insert(static_cast<nsecs_t>(i), handler, messageOf(0));
    EXPECT_LT(queue.footprint(), kBurst * sizeof(PeltoMessage) * 5 / 4);
    for (size_t i = 0; i < kBurst; ++i) {
        MessageEnvelope* envelope = queue.takeFirst();
        envelope->handler.clear();
        queue.giveBack(envelope);
    }
    EXPECT_LT(queue.footprint(), 64 * sizeof(MessageEnvelope));
    EXPECT_EQ(1, handler->getStrongCount());
}

}  // namespace
}  // namespace android
