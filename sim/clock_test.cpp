#include "sim/clock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "phone/phone.h"

using namespace std::chrono_literals;

TEST(Clock, HeldItMovesByAdvanceAloneAndAllTimesTogether) {
    sim::Clock& clock = sim::Clock::get();
    clock.hold();
    const int64_t monotonic = clock.monotonicNanos(), boot = clock.bootNanos();
    const int64_t wall = clock.wallNanos();
    clock.advance(500001ns);
    EXPECT_EQ(clock.monotonicNanos() - monotonic, 500001);
    EXPECT_EQ(clock.bootNanos() - boot, 500001);
    EXPECT_EQ(clock.wallNanos() - wall, 500001);
    timeval now{};
    phone::gettimeofday(&now, nullptr);
    EXPECT_EQ(now.tv_sec, clock.wallNanos() / 1000000000);
    EXPECT_EQ(now.tv_usec, clock.wallNanos() / 1000 % 1000000);
    EXPECT_EQ(phone::time(nullptr), now.tv_sec);

    clock.advance(1h);
    const int64_t before = clock.monotonicNanos();
    clock.release();
    EXPECT_GE(clock.monotonicNanos(), before);
    EXPECT_LT(clock.monotonicNanos(), before + 60 * 1000000000ll);
}

TEST(Clock, SleepersWakeWhenTheirTimeHasCome) {
    sim::Clock& clock = sim::Clock::get();
    clock.hold();
    std::atomic<int> awake{0};
    std::vector<std::thread> threads;
    for (unsigned seconds : {1u, 20u}) {
        threads.emplace_back([&awake, seconds] {
            EXPECT_EQ(phone::sleep(seconds), 0u);
            ++awake;
        });
    }
    ASSERT_TRUE(clock.waitForSleepers(2));
    clock.advance(1s);
    threads[0].join();
    EXPECT_EQ(awake, 1);
    clock.advance(19s - 1ns);
    EXPECT_TRUE(clock.waitForSleepers(1));
    EXPECT_EQ(awake, 1);
    clock.advance(1ns);
    threads[1].join();
}

TEST(Clock, AdvanceEndsASleepOnTheRunningClock) {
    sim::Clock& clock = sim::Clock::get();
    std::thread sleeper([] { phone::usleep(3600u * 1000000u); });
    ASSERT_TRUE(clock.waitForSleepers(1));
    clock.advance(1h);
    sleeper.join();
    clock.sleep(0ns);
    clock.sleep(-1s);
    EXPECT_FALSE(clock.waitForSleepers(1, 0s));
}
