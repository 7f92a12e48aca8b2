// Loads the whole service with events from all sides at once. The environment variable PELTO_SOAK
// is the number of events that each of the four senders sends. The full size, 250000, takes longer
// than the time limit of ctest: run the test program itself.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <thread>

#include "tests/support/service_fixture.h"

namespace {

constexpr bool kSanitized = PELTO_SANITIZED;  // its allocator does not report the heap in use
// The service never drops a native client, even after its process has ended: a proxy, the rest of
// its connection and a list entry stay. Measured: 1633 bytes each with the allocator's overhead, on
// a 64-bit machine over 245 watchers.
constexpr size_t kBytesPerClient = 1640;
constexpr size_t kWatchersPerRound = 5;
constexpr size_t kMaxGrowth = 1 << 20;  // of the heap, apart from native clients

constexpr size_t kMaxThreads = 100;  // of the host; far more than it has without a backlog
constexpr size_t kSenders = 4;
// What the senders send, with the numbers of sender and event for the first and the second '#'.
// Three of them make the product run commands; the last has no listener in the product.
const std::string kKinds[] = {
    "pelto_event_audio_track_create pid:#,sessionId:#",
    "pelto_event_multimedia_capture_logs A0345,3,/data/soak/,/data/soak/,#-#",
    "pelto_event_multimedia_audio_dumpsys soak #-#",
    "event_audio_detect_dump_log #-#",
    "pelto_event_for_test value1:#,value0:#",
    "pelto_event_for_test_to_native string0:event_to_native,value0:#,value1:#",
    "nobody_listens #-#",
};
constexpr size_t kTypes = std::size(kKinds);

// The line that a sender sends at that place: every type with number 0, then with 1, and so on.
std::string line(size_t sender, size_t place) {
    std::string text = kKinds[place % kTypes];
    for (const size_t number : {sender, place / kTypes})
        text.replace(text.find('#'), 1, std::to_string(number));
    return text;
}

using Places = std::array<size_t, kSenders>;  // the next place of each sender

// Finds the sender whose next line that is and advances its place; false when there is none.
bool take(Places& next, const std::string& found) {
    for (size_t sender = 0; sender < kSenders; ++sender) {
        if (found != line(sender, next[sender])) continue;
        ++next[sender];
        return true;
    }
    return false;
}

// Whether the event was caused by the kernel or by this process.
bool isAnothers(const std::string& found) {
    for (const char* type : {"event_audio_mic_status ", "pelto_event_peltoserver_feedback ",
                             "pelto_event_for_test_from_native ", "test_"}) {
        if (found.rfind(type, 0) == 0) return true;
    }
    return false;
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
        for (size_t sender = 0; sender < kSenders; ++sender) {
            const std::string path = phone().folder() + "/sender" + std::to_string(sender);
            ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
            mInputs[sender] = sim::Fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
            mSenders[sender] = std::make_unique<Program>(command({"send", "--stdin"}), path);
        }
    }

    // Writes lines for a sender, ahead of the received ones by no more than its pipe holds.
    void feed(size_t sender, size_t end) {
        constexpr size_t kAhead = 70 * kTypes;
        if (mFed[sender] > mFollowed[sender] + kAhead / 2) return;
        std::string text;
        for (; mFed[sender] < std::min(end, mFollowed[sender] + kAhead); ++mFed[sender])
            text += line(sender, mFed[sender]) + '\n';
        EXPECT_TRUE(sim::writeAll(mInputs[sender].get(), text.data(), text.size()));
    }

    // Sends until the dispatcher and a watcher have received all lines before place `end`.
    void sendUpTo(size_t end) {
        for (size_t lines = mFed[0] * kSenders; lines < end * kSenders; ++lines) {
            for (size_t sender = 0; sender < kSenders; ++sender) feed(sender, end);
            const std::string dispatched = mHost->line();
            ASSERT_TRUE(take(mDispatched, dispatched)) << dispatched;
            std::string followed;
            do {
                followed = mFollower->line();
            } while (isAnothers(followed));
            ASSERT_TRUE(take(mFollowed, followed)) << followed;
            if (lines % 128 == 0) driveKernel();
        }
    }

    // Sends reports of the kernel, and removes some of the kept reports and dumps; the product
    // prunes the others.
    void driveKernel() {
        for (const std::string& kept : {phone().runDir() + "/reports",
                                        phone().fsDir() + "/data/persist_log/TMP/audio_dumpsys"}) {
            for (const auto& entry : std::filesystem::directory_iterator(kept)) {
                std::error_code gone;
                if (entry.path().extension() != "") std::filesystem::remove(entry.path(), gone);
            }
        }
        // Each dump runs on a thread of its own and may be slower than the dispatcher.
        EXPECT_TRUE(awaitEntries("/task", kMaxThreads)) << entries("/task");
        tell("audio 1 1");
        tell("display 7 item");
        tell("clock advance 20");  // wakes the collector
    }

    // Sends up to that place, while watchers come of which half end by themselves, half are killed,
    // and one never reads.
    void runRound(size_t end) {
        const ReadyProgram deaf(watchCommand());  // its output is never read
        tell("gpu fault --size 4096");
        std::atomic<bool> churning{true};
        std::thread churn([&] {
            for (int i = 0; i < 2; ++i) {
                ReadyProgram going(watchCommand({"--count", "20"})), killed(watchCommand());
                EXPECT_EQ(going.wait(), 0) << going.errors();
                EXPECT_NE(killed.line(), "");
                killed.signal(SIGKILL);
                EXPECT_EQ(killed.wait(), -SIGKILL);
            }
            churning = false;
        });
        sendUpTo(end);
        // Sends on until the last watchers have received their events.
        while (churning && send("test_tail", "") == 0) {
        }
        churn.join();
    }

    // Waits until the host has at most that many entries in a directory of /proc/PID.
    bool awaitEntries(const char* directory, size_t most) {
        const auto deadline = std::chrono::steady_clock::now() + kTimeout;
        while (entries(directory) > most) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::yield();
        }
        return true;
    }
    size_t entries(const char* directory) {
        const std::string path = "/proc/" + std::to_string(mHost->pid()) + directory;
        const auto open = std::filesystem::directory_iterator(path);
        return static_cast<size_t>(std::distance(begin(open), end(open)));
    }

    // The heap in use once the host is idle and has at most that many descriptors open.
    size_t heapAt(size_t descriptors) {
        driveKernel();
        EXPECT_EQ(tell("gpu await-reader"), "ok");
        // The last connections may still be open, the last dump may still be running.
        EXPECT_TRUE(awaitEntries("/fd", descriptors)) << entries("/fd");
        EXPECT_EQ(send("test_written", ""), 0);
        size_t heap = 0;
        EXPECT_EQ(sscanf(mHost->line().c_str(), "written %zu", &heap), 1);
        return heap;
    }

    std::unique_ptr<Program> mHost, mFollower;
    std::array<std::unique_ptr<Program>, kSenders> mSenders;
    std::array<sim::Fd, kSenders> mInputs;
    Places mFed{}, mDispatched{}, mFollowed{};
};

TEST_F(SoakTest, LosesNoEventNoDescriptorAndNoMemory) {
    const char* const size = getenv("PELTO_SOAK");
    const size_t usual = kSanitized || !emulator().empty() ? 1400 : 10000;
    // The number of events of each type that a sender sends.
    const size_t events = (size != nullptr ? strtoul(size, nullptr, 10) : usual) / kTypes + 1;
    const size_t round = std::min<size_t>(events / 2 + 1, 5000);
    // Uses every connection and channel once, so that each descriptor of the host is open.
    ASSERT_EQ(tell("audio-await"), "ok");
    ASSERT_EQ(tell("gpu await-reader"), "ok");
    driveKernel();
    ASSERT_EQ(send("test_first", ""), 0);
    while (mFollower->line() != "event_audio_mic_status status:0") ASSERT_FALSE(HasFailure());
    sendUpTo(1);
    const size_t descriptors = entries("/fd");
    runRound(round * kTypes);
    const size_t before = heapAt(descriptors);

    size_t watchers = 0;
    for (size_t end = round; end < events && !HasFatalFailure(); watchers += kWatchersPerRound) {
        end = std::min(events, end + round);
        runRound(end * kTypes);
    }
    const size_t after = heapAt(descriptors);
    printf("%zu events, %zu watchers: heap from %zu to %zu bytes\n", mFed[0] * kSenders, watchers,
           before, after);
    EXPECT_TRUE(kSanitized || after <= before + kMaxGrowth + watchers * kBytesPerClient);

    for (size_t sender = 0; sender < kSenders; ++sender) {
        mInputs[sender] = sim::Fd();
        EXPECT_EQ(mSenders[sender]->wait(), 0) << mSenders[sender]->errors();
    }
    mHost->signal(SIGTERM);
    EXPECT_EQ(mHost->wait(), 0);
}

}  // namespace
