// The road of events with real processes: clients, the service's host, watchers.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/service_test.h"

using namespace android;

namespace {

constexpr int kSenders = 4;
constexpr int kEvents = 10000;  // each

class EventRoadTest : public ServiceTest {
  protected:
    // Watchers that come and go by themselves, or are killed once they have shown something.
    void churnWatchers() {
        for (int round = 0; round < 3; ++round) {
            Program going(command({"watch", "--ready-fd", "3", "--count", "50"}));
            Program killed(command({"watch", "--ready-fd", "3"}));
            EXPECT_TRUE(going.awaitReady());
            EXPECT_EQ(going.wait(), 0) << going.errors();
            EXPECT_NE(killed.line(), "");
            killed.signal(SIGKILL);
            EXPECT_EQ(killed.wait(), -SIGKILL) << killed.errors();
        }
    }
};

void expectAllInOrder(const std::vector<std::string>& infos, const char* where) {
    const auto numbers = numbersBySender(infos);
    EXPECT_EQ(numbers.size(), size_t{kSenders}) << where;
    for (const auto& [sender, found] : numbers) {
        EXPECT_TRUE(found == upTo(kEvents))
            << where << ", sender " << sender << ": " << found.size() << " events or another order";
    }
}

TEST_F(EventRoadTest, everyAcceptedEventArrivesInEachSendersOrder) {
    Program host(listeningHostCommand());
    ASSERT_TRUE(host.awaitReady());
    const sp<Recorder> recorder = record();
    Program deaf(command({"watch", "--ready-fd", "3"}));
    ASSERT_TRUE(deaf.awaitReady());

    std::vector<std::unique_ptr<Program>> senders;
    for (int sender = 0; sender < kSenders; ++sender) {
        senders.push_back(std::make_unique<Program>(command({"send", "--stdin"}),
                                                    numberedEvents(sender, kEvents)));
    }
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

    expectAllInOrder(dispatched(host), "dispatcher");
    EXPECT_TRUE(recorder->await("test_written"));
    expectAllInOrder(recorder->infos("test_event"), "native client");

    // It had indeed stopped reading.
    deaf.signal(SIGKILL);
    deaf.wait();
    EXPECT_LT(std::count(deaf.output().begin(), deaf.output().end(), '\n'), kSenders * kEvents);
}

TEST_F(EventRoadTest, theReplyToTheTestEventReachesAWatcher) {
    Program host(hostCommand());
    ASSERT_TRUE(host.awaitReady());
    Program watcher(command({"watch", "--ready-fd", "3", "--count", "2"}));
    ASSERT_TRUE(watcher.awaitReady());
    const std::string info = "value0:2,value1:3,string0:event_to_native";
    EXPECT_EQ(pelto({"send", "pelto_event_for_test_to_native", info}).code, 0);
    EXPECT_EQ(watcher.line(), "pelto_event_for_test_to_native " + info);
    EXPECT_EQ(watcher.line(),
              "pelto_event_for_test_from_native "
              "value0:4,value1:5,string0:evetn_frome_native,string1:evetn_frome_native");
    EXPECT_EQ(watcher.wait(), 0);
}

}  // namespace
