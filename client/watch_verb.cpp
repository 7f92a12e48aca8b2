// Shows the events that the service sends to its native clients.
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <errno.h>
#include <fcntl.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <ipeltoservice/PeltoServiceCalls.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/verbs.h"
#include "client/wait_options.h"
#include "sim/base/clock.h"
#include "sim/base/fd.h"
#include "sim/base/process_starter.h"

namespace pelto {
namespace {

using android::Mutex;
using android::sp;

struct WatchOptions {
    bool json = false;
    bool background = false;
    Limits limits{"watch", "events"};
    int readyFd = -1;  // gets the line "ready"; -1: none
};

// Prints each event as it arrives, on a binder thread. wait() returns on the main thread after the
// last one, or when the service dies.
class Watcher : public android::BnPeltoNativeClient, public android::IBinder::DeathRecipient {
  public:
    explicit Watcher(const WatchOptions& options) : mOptions(options) {}

    android::status_t onNativeEvent(const char* type, const char* info) override EXCLUDES(mLock) {
        print(mOptions.json ? jsonLine({{"time_ms", sim::Clock::get().wallNanos() / 1000000},
                                        {"type", type},
                                        {"info", info}})
                            : escaped(type) + " " + escaped(info),
              1);
        return android::OK;
    }

    void binderDied(const android::wp<android::IBinder>& /*who*/) override EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        mServiceEnded = true;
        mChanged.signal();
    }

    int wait(const Deadline& deadline) EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        while (!mOptions.limits.reached(mSeen)) {
            if (mUnwritten) throw Failure(kFailed, "watch: the output is not taken any more");
            if (mServiceEnded) throw Failure(kNoService, "watch: the service has ended");
            if (deadline.passed()) return mOptions.limits.endAtTimeout(mSeen);
            if (deadline.limited()) {
                mChanged.waitRelative(mLock, deadline.leftNanos());
            } else {
                mChanged.wait(mLock);
            }
        }
        return kDone;
    }

  protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override EXCLUDES(mLock) {
        if (code != LOST_CALLS_TRANSACTION)
            return BnPeltoNativeClient::onTransact(code, data, reply, flags);
        const int32_t lost = data.readInt32();
        print(mOptions.json ? jsonLine({{"lost", lost}}) : std::to_string(lost) + " events lost",
              0);
        return android::OK;
    }

  private:
    void print(const std::string& line, uint64_t events) EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        if (mOptions.limits.reached(mSeen) || mUnwritten) return;
        mUnwritten = puts(line.c_str()) < 0 || fflush(stdout) != 0;
        mSeen += events;
        mChanged.signal();
    }

    const WatchOptions mOptions;
    Mutex mLock;
    android::Condition mChanged;
    uint64_t mSeen GUARDED_BY(mLock) = 0;
    bool mServiceEnded GUARDED_BY(mLock) = false;
    bool mUnwritten GUARDED_BY(mLock) = false;
};

int watch(Client& client, const WatchOptions& options) {
    const Deadline deadline(options.limits.timeoutSeconds);
    if (deadline.limited()) client.limitCallsTo(options.limits.timeoutSeconds);
    const sp<android::IBinder> service = client.service();
    android::ProcessState::self()->startThreadPool();
    const sp<Watcher> watcher = new Watcher(options);
    check(service->linkToDeath(watcher), "watch", service);
    check(android::PeltoServiceCalls(service.get()).registerNativeClient(watcher), "watch",
          service);
    sim::tellReady(options.readyFd);
    return watcher->wait(deadline);
}

// Watches in a child process. Returns once it is registered, or with its exit code if it ends
// before that.
int watchInBackground(Client& client, WatchOptions options) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Failure(kFailed, std::string("watch: ") + strerror(errno));
    const sim::Fd ready(ends[0]);
    sim::Fd tell(ends[1]);
    const pid_t child = fork();
    if (child < 0) throw Failure(kFailed, std::string("watch: ") + strerror(errno));
    if (child == 0) {
        options.readyFd = tell.release();
        return watch(client, options);
    }
    tell = sim::Fd();
    char line[8];
    if (read(ready.get(), line, sizeof line) > 0) return kDone;
    const int status = sim::waitForExit(child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kFailed;
}

}  // namespace

void addWatchVerb(CLI::App& app, Client& client) {
    auto options = std::make_shared<WatchOptions>();
    CLI::App* verb = app.add_subcommand(
        "watch",
        "Show the events that reach native clients, one a line: \"TYPE INFO\"; where some did not "
        "arrive since this client fell behind: \"N events lost\"");
    verb->add_flag("--json", options->json,
                   "A JSON object a line: time_ms (when it arrived), type, info; or lost");
    options->limits.addTo(verb);
    CLI::Option* readyFd =
        verb->add_option("--ready-fd", options->readyFd,
                         "Descriptor that gets the line \"ready\" once no event is missed any more")
            ->check(sim::descriptorFault)
            ->type_name("FD");
    verb->add_flag("--background", options->background,
                   "Return once no event is missed any more, and go on in the background")
        ->excludes(readyFd);
    client.onVerb(
        verb,
        {{kDone,
          "--count was reached, or without it --timeout is over; with --background: watches"},
         {kFailed, "the service takes no more clients, or the output is not taken"},
         kNoPhone,
         kNoService,
         {kTimeout, "the service does not answer, or --count was not reached in time"}},
        [&client, options] {
            return options->background ? watchInBackground(client, *options)
                                       : watch(client, *options);
        });
}

}  // namespace pelto
