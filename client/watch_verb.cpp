// Shows the events that the service passes to its native clients.
#include <binder/ProcessState.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <ipeltoservice/PeltoServiceCalls.h>
#include <stdio.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/client.h"
#include "client/deadline.h"
#include "client/text.h"
#include "client/verbs.h"
#include "sim/clock.h"
#include "sim/ready.h"

namespace pelto {
namespace {

using android::Mutex;
using android::sp;

struct WatchOptions {
    bool json = false;
    uint64_t count = 0;         // 0 is no end
    double timeoutSeconds = 0;  // 0 is none
    int readyFd = -1;
};

// Prints what arrives, one line an event, and wakes the main thread at the last one or when the
// service dies.
class Watcher : public android::BnPeltoNativeClient, public android::IBinder::DeathRecipient {
  public:
    explicit Watcher(const WatchOptions& options) : mOptions(options) {}

    android::status_t onNativeEvent(const char* type, const char* info) override EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        if (completeLocked() || mUnwritten) return android::OK;
        const std::string line =
            mOptions.json ? jsonLine({{"time_ms", sim::Clock::get().wallNanos() / 1000000},
                                      {"type", type},
                                      {"info", info}})
                          : printable(type) + " " + printable(info);
        puts(line.c_str());
        mUnwritten = fflush(stdout) != 0;
        ++mSeen;
        mChanged.signal();
        return android::OK;
    }

    void binderDied(const android::wp<android::IBinder>& /*who*/) override EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        mServiceEnded = true;
        mChanged.signal();
    }

    int wait() EXCLUDES(mLock) {
        const Deadline deadline(mOptions.timeoutSeconds);
        Mutex::Autolock lock(mLock);
        while (!completeLocked()) {
            if (mUnwritten) throw Failure(kFailed, "watch: the output is not taken any more");
            if (mServiceEnded) throw Failure(kNoService, "watch: the service has ended");
            if (deadline.passed()) return endAtTimeoutLocked();
            if (deadline.limited()) {
                mChanged.waitRelative(mLock, deadline.leftNanos());
            } else {
                mChanged.wait(mLock);
            }
        }
        return kDone;
    }

  private:
    bool completeLocked() const REQUIRES(mLock) {
        return mOptions.count > 0 && mSeen == mOptions.count;
    }

    int endAtTimeoutLocked() const REQUIRES(mLock) {
        if (mOptions.count == 0) return kDone;
        throw Failure(kTimeout, "watch: timeout after " + std::to_string(mSeen) + " of " +
                                    std::to_string(mOptions.count) + " events");
    }

    const WatchOptions mOptions;
    Mutex mLock;
    android::Condition mChanged;
    uint64_t mSeen GUARDED_BY(mLock) = 0;
    bool mServiceEnded GUARDED_BY(mLock) = false;
    bool mUnwritten GUARDED_BY(mLock) = false;
};

int watch(Client& client, const WatchOptions& options) {
    const sp<android::IBinder> service = client.service();
    android::ProcessState::self()->startThreadPool();
    const sp<Watcher> watcher = new Watcher(options);
    check(service->linkToDeath(watcher), "watch");
    check(android::PeltoServiceCalls(service.get()).registerNativeClient(watcher), "watch");
    sim::tellReady(options.readyFd);
    return watcher->wait();
}

}  // namespace

void addWatchVerb(CLI::App& app, Client& client) {
    auto options = std::make_shared<WatchOptions>();
    CLI::App* verb = app.add_subcommand(
        "watch", "Show the events that reach native clients, one a line: \"TYPE INFO\"");
    verb->add_flag("--json", options->json,
                   "A JSON object a line: time_ms (when it arrived), type, info");
    verb->add_option("--count", options->count, "End after so many events")
        ->check(CLI::Range(1, 1000000000))
        ->type_name("N");
    verb->add_option("--timeout", options->timeoutSeconds,
                     "End after so many seconds; with --count not reached, exit code 5")
        ->check(CLI::Range(0.001, 1e9))
        ->type_name("S");
    verb->add_option("--ready-fd", options->readyFd,
                     "Descriptor that gets the line \"ready\" once no event is missed any more")
        ->check(CLI::NonNegativeNumber)
        ->type_name("FD");
    client.onVerb(verb, [&client, options] { return watch(client, *options); });
}

}  // namespace pelto
