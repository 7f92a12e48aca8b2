#include "bench/loop_workloads.h"

#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <random>
#include <thread>

namespace bench {

namespace {

class Semaphore {
  public:
    explicit Semaphore(unsigned value) { sem_init(&mSemaphore, 0, value); }
    ~Semaphore() { sem_destroy(&mSemaphore); }
    void wait() {
        while (sem_wait(&mSemaphore) != 0) {
        }
    }
    void post() { sem_post(&mSemaphore); }

  private:
    sem_t mSemaphore;
};

// Receives the result of every read, so that the compiler cannot drop it.
std::atomic<uint64_t> gRead{0};

void readMessage(const Message& message, bool whole) {
    uint64_t sum = static_cast<uint64_t>(message.what);
    if (whole) {
        for (size_t i = 0; i < sizeof message.text; i += sizeof(uint64_t)) {
            uint64_t word;
            memcpy(&word, message.text + i, sizeof word);
            sum += word;
        }
    }
    gRead.store(sum, std::memory_order_relaxed);
}

// A field of /proc/self/status, in bytes.
double statusBytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kilobytes;
        if (word == field && status >> kilobytes) return kilobytes * 1024;
    }
    return 0;
}

Message messageOf(int32_t what) {
    Message message;
    memset(&message, what & 0x7f, sizeof message);
    message.what = what;
    return message;
}

// A loop that runs on a thread of its own; `each` handles its messages there.
class Running {
  public:
    using Each = std::function<void(const Message&, Peer&)>;
    Running(MakePeer make, Each each)
        : mEach(std::move(each)),
          mPeer(make([this](const Message& message) { mEach(message, *mPeer); })),
          mThread([this] { mPeer->run(); }) {}
    ~Running() { join(); }

    Peer& peer() { return *mPeer; }
    void join() {
        if (mThread.joinable()) mThread.join();
    }

  private:
    const Each mEach;
    std::unique_ptr<Peer> mPeer;
    std::thread mThread;
};

// The number of messages received of one producer, on a cache line of its own.
struct alignas(64) Count {
    std::atomic<size_t> value{0};
};

// Each producer has at most `outstanding` messages that are not received yet, and yields at that
// limit. Blocking on a semaphore instead would measure the semaphore.
Figures produce(const Options& options, size_t outstanding) {
    const auto producerCount = static_cast<size_t>(options.producers);
    const size_t each = options.messages / producerCount;
    const size_t total = each * producerCount;
    std::vector<Count> counts(producerCount);
    size_t received = 0;
    int64_t end = 0;
    Running loop(options.make, [&](const Message& message, Peer& peer) {
        readMessage(message, options.readWhole);
        std::atomic<size_t>& done = counts[static_cast<size_t>(message.what)].value;
        done.store(done.load(std::memory_order_relaxed) + 1, std::memory_order_release);
        if (++received < total) return;
        end = nowNanos();
        peer.quit();
    });
    std::atomic<bool> go{false};
    std::vector<std::thread> producers;
    for (int p = 0; p < options.producers; ++p) {
        producers.emplace_back([&, p] {
            const Message message = messageOf(p);
            while (!go) std::this_thread::yield();
            const std::atomic<size_t>& done = counts[static_cast<size_t>(p)].value;
            for (size_t i = 0; i < each; ++i) {
                while (i - done.load(std::memory_order_acquire) >= outstanding)
                    std::this_thread::yield();
                loop.peer().post(message);
            }
        });
    }
    const int64_t begin = nowNanos(), cpuBegin = cpuNanos();
    go = true;
    for (auto& producer : producers) producer.join();
    loop.join();
    const auto cpu = static_cast<double>(cpuNanos() - cpuBegin);
    return {{"rate", static_cast<double>(total) * 1e9 / static_cast<double>(end - begin)},
            {"cpu_ns", cpu / static_cast<double>(total)}};
}

}  // namespace

Figures flatOut(const Options& options) {
    return produce(options, SIZE_MAX);
}

Figures bounded(const Options& options) {
    return produce(options, 256 / static_cast<size_t>(options.producers));
}

Figures wakeLatency(const Options& options) {
    std::vector<int64_t> latencies;
    Semaphore received(0);
    int64_t sent = 0;
    Running loop(options.make, [&](const Message& message, Peer& peer) {
        latencies.push_back(nowNanos() - sent);
        if (message.what != 0) peer.quit();
        received.post();
    });
    for (size_t i = options.messages; i-- > 0;) {
        usleep(100);  // long enough for the loop to fall asleep
        const Message message = messageOf(i == 0);
        sent = nowNanos();
        loop.peer().post(message);
        received.wait();
    }
    loop.join();
    return {{"p50", percentile(latencies, 0.5)}, {"p99", percentile(latencies, 0.99)}};
}

// Measures short queues in many rounds, so that enough messages are timed.
Figures drain(const Options& options) {
    const size_t count = options.messages;
    const size_t rounds = std::clamp<size_t>(200000 / count, 1, 20000);
    Semaphore open(0);
    Semaphore held(0);
    size_t received = 0;
    int64_t end = 0;
    Running loop(options.make, [&](const Message& message, Peer& peer) {
        if (message.what == 1) {
            held.post();
            open.wait();
            return;
        }
        readMessage(message, options.readWhole);
        if (++received % count != 0) return;
        end = nowNanos();
        if (received == count * rounds) peer.quit();
        held.post();
    });
    const double before = statusBytes("VmRSS:");
    std::vector<int64_t> times;
    times.reserve(rounds);  // keeps our own allocations from lying above the messages in the heap
    for (size_t round = 0; round < rounds; ++round) {
        loop.peer().post(messageOf(1));
        held.wait();
        const Message message = messageOf(2);
        for (size_t i = 0; i < count; ++i) loop.peer().post(message);
        const int64_t begin = nowNanos();
        open.post();
        held.wait();
        times.push_back(end - begin);
    }
    loop.join();
    const double after = statusBytes("VmRSS:");  // the loop is idle but not destroyed
    const double waiting = static_cast<double>(count * sizeof(Message));
    return {{"ns", percentile(times, 0.5) / static_cast<double>(count)},
            {"peak_share", (statusBytes("VmHWM:") - before) / waiting},
            {"kept_kib", (after - before) / 1024}};
}

Figures delayed(const Options& options) {
    constexpr int64_t kFirst = 300'000'000;
    constexpr int64_t kSpread = 500'000'000;
    std::mt19937_64 random(options.messages);
    std::vector<int64_t> due(options.messages);
    for (int64_t& time : due) {
        time = kFirst + static_cast<int64_t>(random() % kSpread);
    }
    std::vector<int64_t> lateness;
    int64_t insertNanos = 0;
    int64_t start = 0;
    int64_t last = 0;
    double early = 0;
    double unordered = 0;
    Running loop(options.make, [&](const Message& message, Peer& peer) {
        if (message.what < 0) {
            Message delayedMessage = messageOf(0);
            start = nowNanos();
            for (size_t i = 0; i < due.size(); ++i) {
                delayedMessage.what = static_cast<int32_t>(i);
                peer.postIn(due[i], delayedMessage);
            }
            insertNanos = nowNanos() - start;
            return;
        }
        const int64_t wanted = due[static_cast<size_t>(message.what)];
        const int64_t late = nowNanos() - start - wanted;
        early += late < 0;
        // Due times are relative to each insertion, so differences up to insertNanos are no
        // reordering.
        unordered += wanted + insertNanos < last;
        last = std::max(last, wanted);
        lateness.push_back(late);
        if (lateness.size() == due.size()) peer.quit();
    });
    loop.peer().post(messageOf(-1));
    loop.join();
    return {{"late_p50", percentile(lateness, 0.5)},
            {"late_p99", percentile(lateness, 0.99)},
            {"early", early},
            {"unordered", unordered}};
}

// Each burst finds the memory that the ones before it have left, once the loop has come to rest.
Figures insertBursts(const Options& options) {
    constexpr int kBursts = 10;
    constexpr int64_t kFirst = 50'000'000;
    constexpr int64_t kSpread = 10'000'000;
    std::mt19937_64 random(options.messages);
    std::vector<int64_t> times;
    Semaphore delivered(0);
    size_t received = 0;
    Running loop(options.make, [&](const Message& message, Peer& peer) {
        if (message.what < 0) {
            const Message delayedMessage = messageOf(times.size() + 1 == kBursts);
            const int64_t begin = nowNanos();
            for (size_t i = 0; i < options.messages; ++i)
                peer.postIn(kFirst + static_cast<int64_t>(random() % kSpread), delayedMessage);
            times.push_back(nowNanos() - begin);
            return;
        }
        if (++received % options.messages != 0) return;
        if (message.what == 1) peer.quit();
        delivered.post();
    });
    for (int burst = 0; burst < kBursts; ++burst) {
        loop.peer().post(messageOf(-1));
        delivered.wait();
        usleep(1000);  // long enough for the loop to fall asleep
    }
    loop.join();
    return {{"insert_ns", percentile(times, 0.5) / static_cast<double>(options.messages)}};
}

Figures insertAmong(const Options& options) {
    constexpr int64_t kHour = 3'600'000'000'000;
    constexpr size_t kInserted = 1000;
    std::mt19937_64 random(options.messages);
    int64_t begin = 0;
    int64_t end = 0;
    Running loop(options.make, [&](const Message&, Peer& peer) {
        const auto post = [&](size_t count) {
            const Message message = messageOf(0);
            for (size_t i = 0; i < count; ++i)
                peer.postIn(kHour + static_cast<int64_t>(random() % kHour), message);
        };
        post(options.messages);
        begin = nowNanos();
        post(kInserted);
        end = nowNanos();
        peer.quit();
    });
    loop.peer().post(messageOf(0));
    loop.join();
    return {{"insert_ns", static_cast<double>(end - begin) / kInserted}};
}

Figures selfPost(const Options& options) {
    size_t left = options.messages;
    const Message message = messageOf(0);
    int64_t begin = 0;
    int64_t end = 0;
    Running loop(options.make, [&](const Message& received, Peer& peer) {
        readMessage(received, options.readWhole);
        if (begin == 0) begin = nowNanos();
        if (--left > 0) return peer.post(message);
        end = nowNanos();
        peer.quit();
    });
    loop.peer().post(message);
    loop.join();
    return {{"ns", static_cast<double>(end - begin) / static_cast<double>(options.messages)}};
}

}  // namespace bench
