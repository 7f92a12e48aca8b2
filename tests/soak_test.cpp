// The whole service under everything at once, for as long as is asked for: PELTO_SOAK is the number
// of events that each of the four clients sends (250000 for the full size).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "sim/control.h"
#include "tests/service_test.h"

using namespace android;

namespace {

constexpr int kSenders = 4;
constexpr int kWatchersEach = 6;  // that register and end in one round

// Every type that a client may send; the first one is numbered, and looked at afterwards.
constexpr const char* kOthers[] = {
    "pelto_event_for_test value0:1,string0:soak",
    "pelto_event_audio_track_create pid:1,sessionId:2",
    "pelto_event_multimedia_capture_logs A0345,0,/data/soak/,/data/soak/,name",
    "pelto_event_multimedia_audio_dumpsys soak",
    "event_audio_detect_dump_log now",
    "nobody_listens info",
};

class SoakTest : public ServiceTest {
  protected:
    // A numbered event, and now and then one of another type behind it.
    std::string mixedEvents(int sender, int count) {
        const std::string path = phone().folder() + "/soak-" + std::to_string(sender);
        std::ofstream file(path);
        for (int number = 0; number < count / 2; ++number) {
            file << "test_event sender:" << sender << ",number:" << number << '\n';
            // The ones that run commands are few.
            const int other = number % 100 == 0 ? number / 100 % 6 : number % 2;
            file << kOthers[other] << '\n';
        }
        return path;
    }

    void churnWatchers() {
        for (int i = 0; i < kWatchersEach / 2; ++i) {
            Program going(command({"watch", "--ready-fd", "3", "--count", "20"}));
            Program killed(command({"watch", "--ready-fd", "3"}));
            EXPECT_TRUE(going.awaitReady() && killed.awaitReady());
            EXPECT_EQ(going.wait(), 0) << going.errors();
            killed.signal(SIGKILL);
            killed.wait();
        }
    }

    // The kernel's side: packets, display events and faults, as fast as they are taken.
    void driveKernel(const std::atomic<bool>& on) {
        while (on) {
            sim::controlRequest(phone(), {"audio", "1", "1"});
            sim::controlRequest(phone(), {"display", "7", "item"});
            sim::controlRequest(phone(), {"gpu", "fault", "--size", "4096"});
        }
    }

    // Senders number 10 * round and up; each sends so many events.
    void runRound(int round, int events) {
        Program deaf(command({"watch", "--ready-fd", "3"}));
        ASSERT_TRUE(deaf.awaitReady());
        std::vector<std::unique_ptr<Program>> senders;
        for (int sender = 0; sender < kSenders; ++sender) {
            senders.push_back(std::make_unique<Program>(command({"send", "--stdin"}),
                                                        mixedEvents(10 * round + sender, events)));
        }
        std::atomic<bool> on{true};
        std::thread kernel([&] { driveKernel(on); });
        std::atomic<bool> churning{true};
        std::thread churn([&] {
            churnWatchers();
            churning = false;
        });
        for (const auto& sender : senders) EXPECT_EQ(sender->wait(), 0) << sender->errors();
        // Late watchers wait for events too.
        while (churning && send("test_tail", "") == OK) {
        }
        churn.join();
        on = false;
        kernel.join();
        deaf.signal(SIGKILL);
        deaf.wait();
    }
};

size_t descriptorsOf(pid_t pid) {
    const auto open = std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd");
    return static_cast<size_t>(std::distance(begin(open), end(open)));
}

TEST_F(SoakTest, losesNoEventAndNoDescriptor) {
    const char* const size = getenv("PELTO_SOAK");
    const int events = size != nullptr ? atoi(size) : 4000;
    const int warmUp = std::min(events, 4000);
    Program host(listeningHostCommand());
    ASSERT_TRUE(host.awaitReady());
    runRound(0, warmUp);
    dispatched(host);
    const size_t descriptors = descriptorsOf(host.pid());

    runRound(1, events);
    const auto numbers = numbersBySender(dispatched(host));
    for (int sender = 0; sender < kSenders; ++sender) {
        EXPECT_EQ(numbers.at(sender), upTo(static_cast<size_t>(warmUp) / 2));
        EXPECT_EQ(numbers.at(10 + sender), upTo(static_cast<size_t>(events) / 2)) << sender;
    }
    // The last connections are being closed, the last dump may still be written.
    const auto deadline = std::chrono::steady_clock::now() + 2 * kPatience;
    while (descriptorsOf(host.pid()) > descriptors) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << descriptorsOf(host.pid());
        std::this_thread::yield();
    }
}

}  // namespace
