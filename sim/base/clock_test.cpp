#include "sim/base/clock.h"

#include <gtest/gtest.h>

#include <thread>

#include "phone/phone.h"

using namespace std::chrono_literals;

class ClockTest : public testing::Test {
  protected:
    sim::Clock& clock = sim::Clock::get();
};

TEST_F(ClockTest, HeldItMovesByAdvanceAloneAndAllTimesTogether) {
    clock.hold();
    const int64_t monotonic = clock.monotonicNanos(), boot = clock.bootNanos();
    const int64_t wall = clock.wallNanos();
    clock.advance(500001ns);
    EXPECT_EQ(clock.monotonicNanos() - monotonic, 500001);
    EXPECT_EQ(clock.bootNanos() - boot, 500001);
    EXPECT_EQ(clock.wallNanos() - wall, 500001);
    timeval now{};
    phone::gettimeofday(&now, nullptr);
    EXPECT_EQ(now.tv_sec * int64_t{1000000} + now.tv_usec, clock.wallNanos() / 1000);
    EXPECT_EQ(phone::time(nullptr), now.tv_sec);

    clock.advance(1h);
    const int64_t before = clock.monotonicNanos();
    clock.release();
    EXPECT_GE(clock.monotonicNanos(), before);
    EXPECT_LT(clock.monotonicNanos(), before + 60 * 1000000000ll);
}

TEST_F(ClockTest, SleepersWakeWhenTheirTimeHasCome) {
    clock.hold();
    std::atomic<int> awake{0};
    const auto sleep = [&](unsigned seconds) {
        EXPECT_EQ(phone::sleep(seconds), 0u);
        ++awake;
    };
    std::thread first(sleep, 1), second(sleep, 20);
    ASSERT_TRUE(clock.waitForSleepers(2));
    clock.advance(1s);
    first.join();
    clock.advance(19s - 1ns);
    EXPECT_TRUE(clock.waitForSleepers(1));
    EXPECT_EQ(awake, 1);
    clock.advance(1ns);
    EXPECT_FALSE(clock.waitForSleepers(1, 0s)) << "due, whether or not it has run";
    second.join();

    clock.release();
    std::thread running([] { phone::usleep(3600u * 1000000u); });
    ASSERT_TRUE(clock.waitForSleepers(1));
    clock.advance(1h);
    running.join();
    clock.sleep(-1s);
}
