// Verbs that call an operation of the service.
#include <sim/base/text.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "client/verbs.h"

namespace pelto {
namespace {

using android::PeltoServiceCalls;
using android::String8;

struct SendOptions {
    std::string type;
    std::string info;
    bool nativeOnly = false;
    bool fromStdin = false;
    bool strict = false;
};

class Sender {
  public:
    Sender(Client& client, const SendOptions& options)
        : mService(client.service()), mNativeOnly(options.nativeOnly), mStrict(options.strict) {}

    // Throws what check() throws; `what` names the event.
    void send(const std::string& type, const std::string& info, const std::string& what) {
        const size_t bytes = type.size() + 1 + info.size();
        const std::string tooLong =
            what + ": reaches no listener of the service: " + std::to_string(bytes) +
            " bytes with its type, the limit is " + std::to_string(kMaxEventBytes);
        if (bytes > kMaxEventBytes && mStrict) throw Failure(kFailed, tooLong + "; not sent");
        PeltoServiceCalls calls(mService.get());
        const android::status_t status = mNativeOnly
                                             ? calls.setEventToNative(String8(type), String8(info))
                                             : calls.setEvent(String8(type), String8(info));
        check(status, what, mService);
        if (bytes > kMaxEventBytes) fprintf(stderr, "pelto: %s\n", tooLong.c_str());
    }

  private:
    const android::sp<android::IBinder> mService;
    const bool mNativeOnly, mStrict;
};

void sendLine(Sender& sender, std::string line, const std::string& place) {
    line.erase(0, line.find_first_not_of(" \t\r"));
    if (line.empty() || line[0] == '#') return;
    if (line.find('\0') != line.npos) throw Failure(kFailed, place + ": holds a NUL");
    const size_t blank = std::min(line.find(' '), line.size());
    const std::string info = blank < line.size() ? line.substr(blank + 1) : "";
    sender.send(line.substr(0, blank), info, place);
}

// Sends one event per line of the input, "TYPE INFO" or "TYPE", up to the first that fails. Skips
// blanks before it, blank lines and comments.
int sendLines(Sender& sender) {
    constexpr size_t kMaxLine = 1u << 20;  // more than a call takes
    std::vector<char> line(kMaxLine);
    for (size_t number = 1;; ++number) {
        const std::string place = "line " + std::to_string(number);
        if (std::cin.getline(line.data(), kMaxLine)) {
            const auto read = static_cast<size_t>(std::cin.gcount());
            sendLine(sender, {line.data(), read - (std::cin.eof() ? 0 : 1)}, place);
        } else if (std::cin.eof()) {
            return kDone;
        } else {
            throw Failure(kFailed, place + ": too long for a call; those before it were sent");
        }
    }
}

int send(Client& client, const SendOptions& options) {
    if (options.fromStdin == !options.type.empty()) {
        throw Failure(kUsage, "send takes TYPE [INFO] or --stdin; see pelto send --help");
    }
    Sender sender(client, options);
    if (options.fromStdin) return sendLines(sender);
    sender.send(options.type, options.info, "send");
    return kDone;
}

void addSend(CLI::App& app, Client& client) {
    auto options = std::make_shared<SendOptions>();
    CLI::App* verb = app.add_subcommand("send", "Send an event to the service");
    verb->add_option("TYPE", options->type, "Type of the event");
    verb->add_option("INFO", options->info, "Its information, such as key:value,key:value");
    verb->add_flag("--native-only", options->nativeOnly,
                   "Only for the listeners in the service's own process");
    verb->add_flag(
        "--strict", options->strict,
        "Refuse an event that is too long for the service's listeners, with exit code 1");
    verb->add_flag(
        "--stdin", options->fromStdin,
        "Send one event a line of the standard input, each \"TYPE INFO\"; blank lines and "
        "those that begin with \"#\" are skipped");
    client.onVerb(verb, serviceExits("an event was not taken; those before it were sent"),
                  [&client, options] { return send(client, *options); });
}

// Adds a verb that calls `operation` with its argument "on" or "off".
void addSwitch(CLI::App& app, Client& client, const std::string& name, const char* does,
               android::status_t (PeltoServiceCalls::*operation)(bool, uint32_t)) {
    auto value = std::make_shared<std::string>();
    CLI::App* verb = app.add_subcommand(name, does);
    verb->add_option("on|off", *value, "What it is set to")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
    client.onVerb(verb, serviceExits(kNotCalled), [&client, value, name, operation] {
        client.call(name, [&](auto& calls) { return (calls.*operation)(*value == "on", 0); });
        return kDone;
    });
}

struct Stutter {
    std::string detector;
    int frameGap = 0;
};

void addStutter(CLI::App& app, Client& client) {
    auto stutter = std::make_shared<Stutter>();
    CLI::App* verb = app.add_subcommand("stutter", "Report stuttering video");
    verb->add_option("NAME", stutter->detector, "Who saw it, such as HwuiDetect")->required();
    verb->add_option("GAP", stutter->frameGap, "Frame gap")->required();
    client.onVerb(verb, serviceExits(kNotCalled), [&client, stutter] {
        client.call("stutter", [&](auto& calls) {
            return calls.notifyVideoStutter(String8(stutter->detector), stutter->frameGap);
        });
        return kDone;
    });
}

void addTopActivity(CLI::App& app, Client& client) {
    auto interval = std::make_shared<int64_t>(0);
    CLI::App* verb = app.add_subcommand("top-activity", "Report that the top activity may differ");
    verb->add_option("MS", *interval,
                     "Taken only when more milliseconds have passed since the last one taken")
        ->required()
        ->check([](const std::string& text) {
            return sim::numberIn(text, INT64_MIN, INT64_MAX) ? "" : "is no 64-bit number";
        });
    client.onVerb(verb, serviceExits(kNotCalled), [&client, interval] {
        client.call("top-activity",
                    [&](auto& calls) { return calls.updateTopActivity(*interval); });
        return kDone;
    });
}

}  // namespace

void addServiceVerbs(CLI::App& app, Client& client) {
    addSend(app, client);
    addSwitch(app, client, "debug", "Switch the service's verbose log lines",
              &PeltoServiceCalls::setDebugLog);
}

void addStateVerbs(CLI::App& app, Client& client) {
    addStutter(app, client);
    addSwitch(app, client, "sf-state",
              "Set the display's state; while it is on, HwuiDetect's reports are not sent",
              &PeltoServiceCalls::updateSFStateFlag);
    addTopActivity(app, client);
}

}  // namespace pelto
