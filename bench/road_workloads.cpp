// The cost of an event on its whole way: three listeners of three types each, one of which wants it
// and parses it, as those of the service do.
#include <semaphore.h>
#include <signal.h>
#include <unistd.h>

#include <utility>

#include "bench/allocations.h"
#include "bench/service_workloads.h"
#include "event/EventListener.h"
#include "event/PeltoEvent.h"
#include "event/PeltoEventDisptch.h"
#include "sim/base/process_starter.h"

namespace bench {

namespace {

using namespace android;

// As many as a sender posts before it waits for their delivery: the queue stays in recycled memory.
constexpr size_t kBatch = 256;

// Posts the semaphore once in a batch: waking the sender for each event would cost more than the
// event.
class Listener : public EventListener {
  public:
    Listener(const std::string& name, sem_t& delivered, size_t batch)
        : mDelivered(delivered), mBatch(batch) {
        mName = name;
        for (const char* type : {"_event", "_other_event", "_third_event"})
            mEventTypes.add(name + type);
        PeltoEventDisptch::getInstance().registerEventListener(this);
    }
    void handleEvent(std::string event) override {
        const sp<PeltoEvent> record = new PeltoEvent(std::move(event));
        if (record->getIntFromStringExtra("value0", -1) != 7) _exit(1);
        if (++mSeen % mBatch == 0) sem_post(&mDelivered);
    }

  private:
    sem_t& mDelivered;
    const size_t mBatch;
    size_t mSeen = 0;
};

// The event of road() reaches the second of three.
void addListeners(sem_t& delivered, size_t batch) {
    sem_init(&delivered, 0, 0);
    for (const char* name : {"its", "my", "your"}) new Listener(name, delivered, batch);
}

void await(sem_t& delivered) {
    while (sem_wait(&delivered) != 0) {
    }
}

// Counts from construction on.
class Cost {
  public:
    explicit Cost(size_t events) : mEvents(static_cast<double>(events)) {}
    Figures figures() const {
        return {
            {"rate", mEvents * 1e9 / static_cast<double>(nowNanos() - mBegin)},
            {"cpu_ns", static_cast<double>(cpuNanos() - mCpu) / mEvents},
            {"allocations", static_cast<double>(allocationsOfProcess() - mAllocations) / mEvents}};
    }

  private:
    const double mEvents;
    const int64_t mBegin = nowNanos();
    const int64_t mCpu = cpuNanos();
    const uint64_t mAllocations = allocationsOfProcess();
};

}  // namespace

Figures road(const ServiceOptions& options) {
    sem_t delivered;
    addListeners(delivered, kBatch);
    auto& dispatcher = PeltoEventDisptch::getInstance();
    const String8 type(kPairsType), info(kPairsInfo);
    const size_t batches = options.events / kBatch + 1;
    const auto send = [&] {
        for (size_t i = 0; i < kBatch; ++i) dispatcher.setEvent(type, info);
        await(delivered);
    };
    send();  // the first takes memory that the rest use again
    const Cost cost(batches * kBatch);
    for (size_t i = 0; i < batches; ++i) send();
    return cost.figures();
}

// The service's own three listeners are there too.
Figures clientRoad(const ServiceOptions& options) {
    sem_t delivered;
    addListeners(delivered, options.events);
    ServiceOptions client = options;
    client.pairs = true;
    const pid_t sender = startStoppedClient(client);
    const Cost cost(options.events);
    kill(sender, SIGCONT);
    if (sim::waitForExit(sender) != 0) _exit(1);
    await(delivered);
    return cost.figures();
}

}  // namespace bench
