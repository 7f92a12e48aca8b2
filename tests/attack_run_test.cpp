// Misuses the service for some time while a well-behaved client goes on. The environment variable
// PELTO_ATTACK=SECONDS asks for the full number of attackers and for that many seconds, which takes
// longer than the time limit of ctest: run the test program itself.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "sim/base/process_starter.h"
#include "tests/support/service_fixture.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr bool kSanitized = PELTO_SANITIZED;       // its allocator does not report the heap in use
constexpr size_t kBytesPerClient = 1640;           // see soak_test.cpp
constexpr size_t kMaxGrowth = 256 << 10;           // of the heap, apart from native clients
constexpr std::chrono::milliseconds kKillGap{20};  // between two kills

class AttackRunTest : public ServiceTest {
  protected:
    void TearDown() override {
        for (const Attacker& attacker : mAttackers) end(attacker.pid);
        ServiceTest::TearDown();
    }

    void startAttacker(const std::string& kind) {
        Attacker attacker{kind, -1};
        const Words command = attackerCommand(kind);
        ASSERT_EQ(sim::ProcessStarter().start(command[0], command, attacker.pid), 0);
        mAttackers.push_back(attacker);
        ++mStarted;
    }
    // Kills one of the attackers and puts another in its place.
    void replaceOne() {
        const size_t place = mRandom() % mAttackers.size();
        const Attacker killed = mAttackers[place];
        mAttackers.erase(mAttackers.begin() + static_cast<ptrdiff_t>(place));
        end(killed.pid);
        startAttacker(killed.kind);
    }
    void endAttackers() {
        for (const Attacker& attacker : mAttackers) end(attacker.pid);
        mAttackers.clear();
    }

    // Sends the next event of the client, which is accepted. Of those the host has dispatched, and
    // printed, a few remain to be read.
    void sendNumber(Program& host) {
        while (mDispatched + 500 < mNumber) receiveNumber(host);
        const Clock::time_point begin = Clock::now();
        ASSERT_EQ(send("good", "number:" + std::to_string(mNumber)), 0) << mNumber;
        mNanos.push_back((Clock::now() - begin).count());
        ++mNumber;
    }
    // Everything accepted since the last call has been dispatched, in order; the heap in use then.
    size_t receiveAll(Program& host) {
        EXPECT_EQ(send("test_written", ""), 0);
        while (mDispatched < mNumber) receiveNumber(host);
        size_t heap = 0;
        EXPECT_EQ(sscanf(host.line().c_str(), "written %zu", &heap), 1);
        return heap;
    }
    static ptrdiff_t descriptors(const Program& host) {
        const std::string path = "/proc/" + std::to_string(host.pid()) + "/fd";
        return std::distance(std::filesystem::directory_iterator(path), {});
    }

    size_t mStarted = 0;  // attackers in all
    std::vector<int64_t> mNanos;

  private:
    struct Attacker {
        std::string kind;
        pid_t pid;
    };

    void receiveNumber(Program& host) {
        ASSERT_EQ(host.line(), "good number:" + std::to_string(mDispatched++));
    }
    static void end(pid_t pid) {
        kill(pid, SIGKILL);
        sim::waitForExit(pid);
    }

    std::vector<Attacker> mAttackers;
    std::mt19937 mRandom{1};
    int mNumber = 0, mDispatched = 0;
};

TEST_F(AttackRunTest, AWellBehavedClientLosesNothingAndAllComesBack) {
    const char* const seconds = getenv("PELTO_ATTACK");
    const bool full = seconds != nullptr;
    const std::pair<const char*, int> attackers[] = {
        {"deaf", full ? 50 : 2}, {"slow", full ? 200 : 4}, {"flood", full ? 8 : 2}};
    ReadyProgram host(listeningHostCommand({"good"}));
    ASSERT_EQ(tell("audio-await"), "ok");
    ASSERT_EQ(tell("gpu await-reader"), "ok");
    sendNumber(host);
    const size_t heap = receiveAll(host);
    const ptrdiff_t idle = descriptors(host);

    for (const auto& [kind, count] : attackers) {
        for (int i = 0; i < count; ++i) startAttacker(kind);
    }
    const auto end = Clock::now() + std::chrono::seconds(full ? atoi(seconds) : 1);
    for (auto kill = Clock::now(); Clock::now() < end && !HasFatalFailure();) {
        sendNumber(host);
        if (Clock::now() < kill) continue;
        replaceOne();
        kill = Clock::now() + kKillGap;
    }
    endAttackers();
    std::sort(mNanos.begin(), mNanos.end());
    printf("%zu events accepted, p99 %lld us, %zu attackers\n", mNanos.size(),
           static_cast<long long>(mNanos[mNanos.size() * 99 / 100] / 1000), mStarted);

    receiveAll(host);
    const auto deadline = Clock::now() + kTimeout;
    while (descriptors(host) > idle) ASSERT_LT(Clock::now(), deadline) << descriptors(host);
    const size_t allowed = heap + kMaxGrowth + mStarted * kBytesPerClient, after = receiveAll(host);
    EXPECT_TRUE(kSanitized || after <= allowed) << after << " of " << allowed;
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

}  // namespace
