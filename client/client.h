#pragma once

#include <binder/IBinder.h>
#include <sim/phone.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace pelto {

// The exit codes of every verb.
enum Exit {
    kDone = 0,
    kFailed = 1,  // the thing asked for
    kUsage = 2,
    kNoPhone = 3,
    kNoService = 4,
    kTimeout = 5,
};

// Ends a verb: one line that says what is wrong and what to do, and the exit code.
class Failure : public std::runtime_error {
  public:
    Failure(Exit code, const std::string& text) : runtime_error(text), mCode(code) {}
    Exit code() const { return mCode; }

  private:
    Exit mCode;
};

// What the verbs share: the phone they work on and the service published there.
//
// Threads: the main thread.
class Client {
  public:
    // Adds the options that stand before every verb.
    explicit Client(CLI::App& app);

    // Has a verb do this once the whole command line is read. It returns an exit code or throws
    // Failure.
    void onVerb(CLI::App* verb, std::function<int()> act);
    // Refuses a command line that ends where a verb must follow; it names what it found instead.
    static void needsVerb(CLI::App* app);
    int exitCode() const { return mExitCode; }

    const std::string& folder() const { return mFolder; }
    // Opens the phone; kNoPhone.
    sim::Phone& phone();
    // The published service or null; kNoPhone.
    android::sp<android::IBinder> findService();
    // The published service; kNoPhone, kNoService.
    android::sp<android::IBinder> service();

  private:
    std::string mFolder;
    int mExitCode = kDone;
};

// Throws what a call's status means unless it is OK; `what` names what was asked for.
void check(android::status_t status, const std::string& what);

}  // namespace pelto
