// Loads the whole service with events from all sides at once. The environment variable PELTO_SOAK
// is the number of events that each of the four senders sends. The full size, 250000, takes longer
// than the time limit of ctest: run the test program itself.
#include <gmock/gmock.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <deque>
#include <filesystem>

#include "tests/support/service_fixture.h"

namespace {

constexpr bool kSanitized = PELTO_SANITIZED;  // its allocator does not report the heap in use
// The service never drops a native client, even after its process has ended: a proxy, the rest of
// its connection and a list entry stay. Measured: 1633 bytes each with the allocator's overhead, on
// a 64-bit machine over 245 watchers.
constexpr size_t kBytesPerClient = 1640;
constexpr size_t kWatchersPerBatch = 2;
constexpr size_t kMaxGrowth = 128 << 10;  // of the heap, apart from native clients

constexpr size_t kSenders = 4;
// Events of the senders, with the numbers of sender and event for the first and the second '#'.
// The last has no listener in the product.
const std::string kKinds[] = {
    "pelto_event_audio_track_create pid:#,sessionId:#",
    "event_audio_detect_dump_log #-#",
    "pelto_event_for_test value1:#,value0:#",
    "pelto_event_for_test_to_native string0:event_to_native,value0:#,value1:#",
    "nobody_listens #-#",
};
constexpr size_t kTypes = std::size(kKinds);
constexpr size_t kBatch = 100 * kTypes;  // lines that a sender sends before all are received

// The line that a sender sends at that place: every type with number 0, then with 1, and so on.
std::string line(size_t sender, size_t place) {
    std::string text = kKinds[place % kTypes];
    for (const size_t number : {sender, place / kTypes})
        text.replace(text.find('#'), 1, std::to_string(number));
    return text;
}

using Places = std::array<size_t, kSenders>;  // the next place of each sender

// Reads on to the next line of a sender and advances the sender's place. Skips events that the
// kernel or this process caused.
void receive(Program& from, Places& next) {
    while (true) {
        const std::string found = from.line();
        for (size_t sender = 0; sender < kSenders; ++sender) {
            if (found != line(sender, next[sender])) continue;
            ++next[sender];
            return;
        }
        ASSERT_THAT(found,
                    testing::ContainsRegex("^(event_audio_mic_status|test_[a-z]+|pelto_event_"
                                           "(for_test_from_native|multimedia_[a-z_]+|"
                                           "peltoserver_feedback)) "));
    }
}

class SoakTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        Words types;
        for (const std::string& kind : kKinds) types.push_back(kind.substr(0, kind.find(' ')));
        mHost = std::make_unique<ReadyProgram>(listeningHostCommand(types));
        // Starting programs from a process with many threads may hang under the emulator.
        if (!emulator().empty()) {
            for (const char* program : {"chmod", "rm", "tar", "touch"})
                EXPECT_EQ(tell(std::string("fault program ") + program + " fail 1"), "ok");
        }
        mFollower = std::make_unique<ReadyProgram>(watchCommand());
    }

    // Has each sender send its lines up to place `end` and receives them at the dispatcher and at a
    // watcher. Meanwhile another watcher ends by itself, a third is killed, and the kernel reports.
    void sendBatch(size_t end) {
        ReadyProgram going(watchCommand({"--count", "20"})), killed(watchCommand());
        std::deque<Program> senders;
        for (size_t sender = 0; sender < kSenders; ++sender) {
            const std::string path = "/sender" + std::to_string(sender);
            std::string text;
            for (size_t place = mSent; place < end; ++place) text += line(sender, place) + '\n';
            file(path, text);
            senders.emplace_back(command({"send", "--stdin"}), phone().fsDir() + path);
        }
        EXPECT_NE(killed.line(), "");
        killed.signal(SIGKILL);
        driveOthers();
        for (; mSent < end; ++mSent) {
            for (size_t i = 0; i < kSenders && !HasFatalFailure(); ++i) {
                receive(*mHost, mDispatched);
                receive(*mFollower, mFollowed);
            }
        }
        for (Program& sender : senders) EXPECT_EQ(sender.wait(), 0) << sender.errors();
        EXPECT_EQ(going.wait(), 0) << going.errors();
    }

    // Sends reports of the kernel, a dump and captures.
    void driveOthers() {
        tell("audio 1 1");
        tell("display 7 item");
        tell("clock advance 20");  // wakes the collector
        EXPECT_EQ(send("pelto_event_multimedia_audio_dumpsys", "soak"), 0);
        for (const char* capture :
             {"A0345,3,/data/soak/,/data/soak/,a", "B0001,3,/data/b/,/data/b/,b"})
            EXPECT_EQ(send("pelto_event_multimedia_capture_logs", capture), 0);
    }

    // How many descriptors the host has open.
    ptrdiff_t descriptors() {
        const std::string path = "/proc/" + std::to_string(mHost->pid()) + "/fd";
        return std::distance(std::filesystem::directory_iterator(path), {});
    }

    std::unique_ptr<Program> mHost, mFollower;
    size_t mSent = 0;  // the next place of every sender
    Places mDispatched{}, mFollowed{};
};

TEST_F(SoakTest, LosesNoEventNoDescriptorAndNoMemory) {
    const char* const size = getenv("PELTO_SOAK");
    const size_t usual = kSanitized || !emulator().empty() ? 1400 : 6000;
    // The number of lines that a sender sends: every type equally often.
    const size_t end = (size != nullptr ? strtoul(size, nullptr, 10) : usual) / kTypes * kTypes;
    // Uses every connection and channel once, so that each descriptor of the host is open.
    ASSERT_EQ(tell("audio-await"), "ok");
    ASSERT_EQ(tell("gpu await-reader"), "ok");
    driveOthers();
    ASSERT_EQ(send("test_first", ""), 0);
    while (mFollower->line() != "event_audio_mic_status status:0") ASSERT_FALSE(HasFailure());
    const ptrdiff_t idle = descriptors();
    size_t heap = 0, allowed = 0;
    for (const size_t part : {end / 2, end}) {
        allowed = heap + kMaxGrowth + kBytesPerClient;
        tell("gpu fault --size 4096");
        // Its output is never read. Its backlog is of another size each time, and freed before the
        // heap is looked at.
        auto deaf = std::make_unique<ReadyProgram>(watchCommand());
        for (; mSent < part; allowed += kWatchersPerBatch * kBytesPerClient) {
            sendBatch(std::min(part, mSent + kBatch));
            ASSERT_FALSE(HasFatalFailure());
        }
        driveOthers();
        deaf.reset();
        EXPECT_EQ(tell("gpu await-reader"), "ok");
        // The last connections may still be open, the last dump may still be running.
        const auto deadline = std::chrono::steady_clock::now() + kTimeout;
        while (descriptors() > idle)
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << descriptors();
        EXPECT_EQ(send("test_written", ""), 0);
        EXPECT_EQ(sscanf(mHost->line().c_str(), "written %zu", &heap), 1);
        printf("%zu events: heap of %zu bytes\n", mSent * kSenders, heap);
    }
    EXPECT_TRUE(kSanitized || heap <= allowed) << allowed;
    mHost->signal(SIGTERM);
    EXPECT_EQ(mHost->wait(), 0);
}

}  // namespace
