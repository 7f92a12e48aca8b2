// A native client of the multimedia diagnostics service: prints every event, "TYPE INFORMATION",
// from the line "listening" on its stderr until SIGINT or SIGTERM, or until N events were printed.
//
//   listener [--count N]
//
// Exit codes: 0 ended as asked, 1 the service or the output failed, 2 wrong usage; on a desk also
// 3, there is no phone.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <ipeltoservice/IPeltoNativeClient.h>
#include <ipeltoservice/IPeltoService.h>
#include <signal.h>
#include <unistd.h>
#include <utils/String16.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace android;

// Both callbacks run on threads of the binder library. The main thread waits for a signal, so they
// end the program by one.
class Listener : public BnPeltoNativeClient, public IBinder::DeathRecipient {
  public:
    explicit Listener(long count) : mLeft(count) {}

    status_t onNativeEvent(const char* type, const char* info) override {
        if (mLeft == 0) return OK;
        if (printf("%s %s\n", type, info) < 0 || fflush(stdout) != 0) {
            end("the output cannot be written");
        } else if (mLeft > 0 && --mLeft == 0) {
            end(nullptr);
        }
        return OK;
    }

    void binderDied(const wp<IBinder>& /*service*/) override { end("the service has ended"); }

    // Why the program ends early, else null.
    const char* failure() const { return mFailure; }

  private:
    void end(const char* failure) {
        mFailure = failure;
        kill(getpid(), SIGTERM);
    }

    long mLeft;  // events to print, negative: no limit; they come one at a time
    std::atomic<const char*> mFailure{nullptr};
};

static int fail(const char* why) {
    fprintf(stderr, "listener: %s\n", why);
    return 1;
}

static int run(long count) {
    // Blocked before the library starts threads, which inherit that.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, nullptr);

    const sp<IBinder> binder = defaultServiceManager()->getService(String16("peltoservice"));
    if (binder == nullptr) return fail("the service is not published");
    ProcessState::self()->startThreadPool();
    const sp<Listener> listener = new Listener(count);
    if (binder->linkToDeath(listener) != OK ||
        interface_cast<IPeltoService>(binder)->registerNativeClient(listener) != OK)
        return fail("the service does not take this client");
    fputs("listening\n", stderr);
    int signal = 0;
    sigwait(&stop, &signal);
    return listener->failure() != nullptr ? fail(listener->failure()) : 0;
}

int main(int argc, char** argv) {
    long count = -1;
    char* rest = nullptr;
    if (argc == 3 && strcmp(argv[1], "--count") == 0) count = strtol(argv[2], &rest, 10);
    if (argc != 1 && (rest == nullptr || *rest != '\0' || count <= 0)) {
        fputs("usage: listener [--count N]\n", stderr);
        return 2;
    }
    // Ends at once: threads of the library still run.
    _exit(run(count));
}
