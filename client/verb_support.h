#pragma once

#include <ipeltoservice/PeltoServiceCalls.h>
#include <sim/phone.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace pelto {

// The exit codes of every verb.
enum Exit {
    kDone = 0,
    kFailed = 1,  // the command was understood and could not be carried out
    kUsage = 2,
    kNoPhone = 3,
    kNoService = 4,
    kTimeout = 5,
};

// Ends a verb with an exit code and one line on stderr: what is wrong and what to do.
class Failure : public std::runtime_error {
  public:
    Failure(Exit code, const std::string& text) : runtime_error(text), mCode(code) {}
    Exit code() const { return mCode; }

  private:
    Exit mCode;
};

// Gives every verb the phone it works on and the service published there.
//
// Threads: the main thread.
class Client {
  public:
    // Adds the options that every verb shares.
    explicit Client(CLI::App& app);

    // Runs `act` for the verb once the whole command line is parsed. `act` returns an exit code or
    // throws Failure.
    void onVerb(CLI::App* verb, std::function<int()> act);
    // Refuses a command line without a verb below `app`; an unknown word is reported as such.
    static void needsVerb(CLI::App* app);
    int exitCode() const { return mExitCode; }

    const std::string& folder() const { return mFolder; }
    // Opens the phone. Throws Failure(kNoPhone).
    sim::Phone& phone();
    // The published service or null. Throws Failure(kNoPhone).
    android::sp<android::IBinder> findService();
    // The published service. Throws Failure(kNoPhone or kNoService).
    android::sp<android::IBinder> service();
    // Calls an operation of the service. Throws what service() throws, and Failure with `what` for
    // a status other than OK.
    void call(const std::string& what,
              const std::function<android::status_t(android::PeltoServiceCalls&)>& operation);
    // Sends a command to the phone's control socket in the service's process and returns the texts
    // of the reply. Throws what service() throws, and Failure(kFailed) with the replied error.
    std::vector<std::string> ask(const std::vector<std::string>& words);

  private:
    std::string mFolder;
    int mExitCode = kDone;
};

// Throws Failure unless the status of a call is OK; `what` names the call.
void check(android::status_t status, const std::string& what);

// The object on one line, its keys in the order given; bytes that are no UTF-8 become U+FFFD.
std::string jsonLine(const nlohmann::ordered_json& object);

// The text on one line: control characters and backslashes as \n, \t, \\ or \xNN.
std::string escaped(const std::string& text);

}  // namespace pelto
