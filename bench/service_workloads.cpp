#include "bench/service_workloads.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <ipeltoservice/PeltoServiceCalls.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "event/EventListener.h"
#include "event/PeltoEventDisptch.h"
#include "service/PeltoService.h"
#include "sim/base/process_starter.h"
#include "sim/phone.h"

namespace bench {

namespace {

using namespace android;

constexpr char kType[] = "bench_event";

// The information of each event: the time at which it is sent.
std::string timeText() {
    return std::to_string(nowNanos());
}

// Calls `send` once per event, with the gap in between.
void paced(const ServiceOptions& options, const std::function<void()>& send) {
    for (size_t i = 0; i < options.events; ++i) {
        if (options.gapMicros > 0) usleep(options.gapMicros);
        send();
    }
}

// Records the latency of each event until all have arrived.
class Arrivals {
  public:
    explicit Arrivals(size_t expected) : mExpected(expected) {
        sem_init(&mAll, 0, 0);
        mNanos.reserve(expected);
    }
    void note(int64_t sent) {
        const int64_t now = nowNanos();
        if (mNanos.empty()) mFirst = sent;
        mNanos.push_back(now - sent);
        mLast = now;
        if (mNanos.size() == mExpected) sem_post(&mAll);
    }
    Figures await() {
        while (sem_wait(&mAll) != 0) {
        }
        Figures figures = percentiles(mNanos);
        figures["rate"] =
            static_cast<double>(mExpected) * 1e9 / static_cast<double>(mLast - mFirst);
        return figures;
    }

  private:
    const size_t mExpected;
    std::vector<int64_t> mNanos;
    int64_t mFirst = 0;
    int64_t mLast = 0;
    sem_t mAll;
};

class Listener : public EventListener {
  public:
    explicit Listener(Arrivals& arrivals) : mArrivals(arrivals) {
        mName = "bench";
        mEventTypes.add(kType);
    }
    void handleEvent(std::string event) override {
        mArrivals.note(strtoll(event.c_str() + sizeof kType, nullptr, 10));
    }

  private:
    Arrivals& mArrivals;
};

// Starts this program again on the same phone, with these words after the phone's folder.
pid_t startAgain(const std::string& command, const std::vector<std::string>& more) {
    std::vector<std::string> words{"service_bench", command, sim::Phone::get().folder()};
    words.insert(words.end(), more.begin(), more.end());
    pid_t pid = -1;
    if (sim::ProcessStarter().start("/proc/self/exe", words, pid) != 0) _exit(1);
    return pid;
}

pid_t startClient(const ServiceOptions& options) {
    std::vector<std::string> words{std::to_string(options.events),
                                   std::to_string(options.gapMicros)};
    if (options.stops) words.push_back("--stops");
    if (options.pairs) words.push_back("--pairs");
    return startAgain("send", words);
}

void publishService() {
    static const sp<PeltoService>& service = *new sp<PeltoService>(new PeltoService());
    if (defaultServiceManager()->addService(String16(kPeltoServiceName), service) != OK) _exit(1);
    ProcessState::self()->startThreadPool();
}

size_t namedThreads() {
    size_t named = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        named += name != "service_bench";
    }
    return named;
}

}  // namespace

Figures startUp(const ServiceOptions&) {
    const int64_t begin = nowNanos();
    static const sp<PeltoService>& service = *new sp<PeltoService>(new PeltoService());
    const int64_t end = nowNanos();
    service->setDebugLog(false);
    usleep(20000);  // each thread sets its own name, after it started
    return {{"constructor", static_cast<double>(end - begin)},
            {"named_threads", static_cast<double>(namedThreads())}};
}

Figures dispatch(const ServiceOptions& options) {
    Arrivals arrivals(options.events);
    auto& dispatcher = PeltoEventDisptch::getInstance();
    dispatcher.registerEventListener(new Listener(arrivals));
    paced(options, [&] { dispatcher.setEvent(String8(kType), String8(timeText().c_str())); });
    return arrivals.await();
}

Figures client(const ServiceOptions& options) {
    Arrivals arrivals(options.events);
    PeltoEventDisptch::getInstance().registerEventListener(new Listener(arrivals));
    publishService();
    if (sim::waitForExit(startClient(options)) != 0) _exit(1);
    return arrivals.await();
}

Figures attacked(const ServiceOptions& options) {
    constexpr std::pair<const char*, int> kAttackers[] = {
        {"deaf", 50}, {"slow", 200}, {"flood", 8}};
    Arrivals arrivals(options.events);
    PeltoEventDisptch::getInstance().registerEventListener(new Listener(arrivals));
    // Connects first: the others take every place that is left.
    const pid_t sender = startStoppedClient(options);
    std::vector<pid_t> attackers;
    for (const auto& [kind, count] : kAttackers) {
        for (int i = 0; i < count; ++i) attackers.push_back(startAgain("attack", {kind}));
    }
    kill(sender, SIGCONT);
    const int failed = sim::waitForExit(sender);
    for (const pid_t attacker : attackers) kill(attacker, SIGKILL);
    for (const pid_t attacker : attackers) sim::waitForExit(attacker);
    if (failed != 0) _exit(1);
    return arrivals.await();
}

pid_t startStoppedClient(const ServiceOptions& options) {
    publishService();
    ServiceOptions stopping = options;
    stopping.stops = true;
    const pid_t sender = startClient(stopping);
    int status = 0;
    if (waitpid(sender, &status, WUNTRACED) != sender || !WIFSTOPPED(status)) _exit(1);
    return sender;
}

int sendEvents(const ServiceOptions& options) {
    const sp<IBinder> service = defaultServiceManager()->checkService(String16(kPeltoServiceName));
    if (service == nullptr || service->pingBinder() != OK) return 1;
    if (options.stops) raise(SIGSTOP);
    PeltoServiceCalls calls(service.get());
    const String8 type(options.pairs ? kPairsType : kType), pairs(kPairsInfo);
    int failed = 0;
    paced(options, [&] {
        const String8 info = options.pairs ? pairs : String8(timeText().c_str());
        failed |= calls.setEvent(type, info) != OK;
    });
    return failed;
}

Figures socketFloor(const ServiceOptions& options) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) _exit(1);
    Arrivals arrivals(options.events);
    std::thread reader([&] {
        char text[64];
        while (recv(ends[1], text, sizeof text, MSG_WAITALL) == sizeof text) {
            arrivals.note(strtoll(text, nullptr, 10));
        }
    });
    paced(options, [&] {
        char text[64] = {};
        timeText().copy(text, sizeof text - 1);
        if (write(ends[0], text, sizeof text) != sizeof text) _exit(1);
    });
    const Figures figures = arrivals.await();
    shutdown(ends[0], SHUT_WR);
    reader.join();
    return figures;
}

}  // namespace bench
