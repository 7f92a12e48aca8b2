#include "sim/base/clock.h"

#include <gtest/gtest.h>

#include <thread>

#include "phone/phone.h"

using namespace std::chrono_literals;

TEST(ClockTest, HeldMovesByAdvanceAloneAndAllTimesTogether) {
    sim::Clock& clock = sim::Clock::get();
    clock.hold();
    const int64_t monotonic = clock.monotonicNanos(), boot = clock.bootNanos();
    const int64_t wall = clock.wallNanos();
    clock.advance(1h + 1ns);
    EXPECT_EQ(clock.monotonicNanos() - monotonic, 3600000000001);
    EXPECT_EQ(clock.bootNanos() - boot, 3600000000001);
    EXPECT_EQ(clock.wallNanos() - wall, 3600000000001);
    timeval now{};
    phone::gettimeofday(&now, nullptr);
    EXPECT_EQ(now.tv_sec * int64_t{1000000} + now.tv_usec, clock.wallNanos() / 1000);
    EXPECT_EQ(phone::time(nullptr), now.tv_sec);
    clock.release();
    EXPECT_GE(clock.monotonicNanos() - monotonic, 3600000000001);
    EXPECT_LT(clock.monotonicNanos() - monotonic, 3660000000000);
}

TEST(ClockTest, WakesSleepersWhenTheirTimeHasCome) {
    sim::Clock& clock = sim::Clock::get();
    clock.hold();
    std::thread first([] { EXPECT_EQ(phone::sleep(1), 0u); });
    std::thread second([] { EXPECT_EQ(phone::usleep(20000000), 0); });
    ASSERT_TRUE(clock.waitForSleepers(2));
    clock.advance(1s);
    first.join();
    clock.advance(19s - 1ns);
    EXPECT_TRUE(clock.waitForSleepers(1));
    clock.advance(1ns);
    EXPECT_FALSE(clock.waitForSleepers(1, 0s)) << "due, whether or not it has run";
    second.join();
    clock.release();
    std::thread running([] { phone::sleep(3600); });
    ASSERT_TRUE(clock.waitForSleepers(1));
    clock.advance(1h);
    running.join();
}
