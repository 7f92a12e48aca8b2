#pragma once

#include <ipeltoservice/PeltoServiceCalls.h>
#include <sim/phone.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace pelto {

// The exit codes of every verb. Each verb lists those that it can end with: see onVerb().
enum Exit {
    kDone = 0,
    kFailed = 1,  // the command was understood and could not be carried out
    kUsage = 2,
    kNoPhone = 3,
    kNoService = 4,
    kTimeout = 5,
};

// An exit code and what it means for one verb; without a text what it means for every verb.
struct VerbExit {
    VerbExit(Exit exit, std::string text = "") : code(exit), meaning(std::move(text)) {}

    Exit code;
    std::string meaning;
};

// Adds the codes to the help of a verb or the program, and kDone and kUsage unless they are given.
void listExits(CLI::App& app, std::vector<VerbExit> exits);

// The exits of a verb that only needs the phone's folder, with the meaning of kFailed.
std::vector<VerbExit> phoneExits(const char* failed);
// The exits of a verb that needs the service, with the meaning of kFailed and, unless null, what
// else kTimeout means: what the service does not do.
std::vector<VerbExit> serviceExits(const char* failed, const char* late = nullptr);

// The meaning of kFailed for verbs that show something, that call an operation of the service, and
// that send a command to the control socket.
constexpr char kUnwritten[] = "the output could not be written";
constexpr char kNotCalled[] = "the service takes no more clients, or not this call";
constexpr char kNotCarriedOut[] = "the phone could not do it";

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
    // throws Failure; its help lists the codes, which are kDone, kUsage and `exits`.
    void onVerb(CLI::App* verb, const std::vector<VerbExit>& exits, std::function<int()> act);
    // Refuses a command line without a verb below `app`; an unknown word is reported as such.
    static void needsVerb(CLI::App* app);
    int exitCode() const { return mExitCode; }

    // How long the service may take to answer a call or a request: --call-timeout unless a verb
    // sets another limit before it finds the service.
    std::chrono::nanoseconds callLimit() const;
    void limitCallsTo(double seconds) { mCallSeconds = std::min(mCallSeconds, seconds); }
    // The limit when no --call-timeout is given.
    void limitCallsByDefault(double seconds);

    const std::string& folder() const { return mFolder; }
    // Opens the phone. Throws Failure(kNoPhone).
    sim::Phone& phone();
    // The published service or null. Throws Failure(kNoPhone).
    android::sp<android::IBinder> findService();
    // The published service. Throws Failure(kNoPhone or kNoService).
    android::sp<android::IBinder> service();
    // Calls an operation of the service. Throws what service() and check() throw.
    void call(const std::string& what,
              const std::function<android::status_t(android::PeltoServiceCalls&)>& operation);
    // Sends a command to the phone's control socket in the service's process and returns the texts
    // of the reply. Throws what service() throws, and Failure with the replied error: kUsage when
    // the words are wrong, kTimeout when what the command waits for or the reply does not come,
    // else kFailed.
    std::vector<std::string> ask(const std::vector<std::string>& words);

  private:
    std::string mFolder;
    double mCallSeconds = 10;
    CLI::Option* mCallTimeout = nullptr;
    int mExitCode = kDone;
};

// The most bytes of an event's type, "$" and information together: no listener of the service gets
// a longer event, native clients do.
constexpr size_t kMaxEventBytes = 1023;

// The process at the other end of a service that findService() has found.
pid_t processOf(const android::sp<android::IBinder>& service);

// Throws Failure unless the status of a call to the service is OK; `what` names the call.
void check(android::status_t status, const std::string& what,
           const android::sp<android::IBinder>& service);

// The object on one line, its keys in the order given; bytes that are no UTF-8 become U+FFFD.
std::string jsonLine(const nlohmann::ordered_json& object);

// The text on one line: control characters and backslashes as \n, \t, \\ or \xNN.
std::string escaped(const std::string& text);

}  // namespace pelto
