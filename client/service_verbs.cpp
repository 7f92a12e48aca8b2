// Verbs that call an operation of the service and wait for its answer.
#include <ipeltoservice/PeltoServiceCalls.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "client/client.h"
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
};

class Sender {
  public:
    Sender(Client& client, bool nativeOnly) : mService(client.service()), mNativeOnly(nativeOnly) {}

    android::status_t send(const std::string& type, const std::string& info) {
        PeltoServiceCalls calls(mService.get());
        return mNativeOnly ? calls.setEventToNative(String8(type), String8(info))
                           : calls.setEvent(String8(type), String8(info));
    }

  private:
    const android::sp<android::IBinder> mService;
    const bool mNativeOnly;
};

void sendLine(Sender& sender, const std::string& line, size_t number) {
    const size_t blank = std::min(line.find(' '), line.size());
    const std::string info = blank < line.size() ? line.substr(blank + 1) : "";
    check(sender.send(line.substr(0, blank), info), "line " + std::to_string(number));
}

// One event a line, "TYPE INFO" or "TYPE", until the input ends or a line is not accepted.
int sendLines(Sender& sender) {
    constexpr size_t kLongestLine = 1u << 20;  // more than a call takes
    std::vector<char> line(kLongestLine);
    for (size_t number = 1; std::cin.getline(line.data(), kLongestLine); ++number) {
        if (line[0] != '\0') sendLine(sender, line.data(), number);
    }
    if (!std::cin.eof())
        throw Failure(kFailed, "a line is too long for a call; what stood before it was sent");
    return kDone;
}

int send(Client& client, const SendOptions& options) {
    if (options.fromStdin == !options.type.empty()) {
        throw Failure(kUsage, "send takes TYPE [INFO] or --stdin; see pelto send --help");
    }
    Sender sender(client, options.nativeOnly);
    if (options.fromStdin) return sendLines(sender);
    check(sender.send(options.type, options.info), "send");
    return kDone;
}

void addSend(CLI::App& app, Client& client) {
    auto options = std::make_shared<SendOptions>();
    CLI::App* verb = app.add_subcommand("send", "Send an event to the service");
    verb->add_option("TYPE", options->type, "Type of the event");
    verb->add_option("INFO", options->info, "Its information, such as key:value,key:value");
    verb->add_flag("--native-only", options->nativeOnly,
                   "Only for the listeners in the service's own process");
    verb->add_flag("--stdin", options->fromStdin,
                   "Send one event a line of the standard input, each \"TYPE INFO\"");
    client.onVerb(verb, [&client, options] { return send(client, *options); });
}

void addDebug(CLI::App& app, Client& client) {
    auto value = std::make_shared<std::string>();
    CLI::App* verb = app.add_subcommand("debug", "Switch the service's verbose log lines");
    verb->add_option("on|off", *value, "")->required()->check(CLI::IsMember({"on", "off"}));
    client.onVerb(verb, [&client, value] {
        const auto service = client.service();
        check(PeltoServiceCalls(service.get()).setDebugLog(*value == "on"), "debug");
        return kDone;
    });
}

}  // namespace

void addServiceVerbs(CLI::App& app, Client& client) {
    addSend(app, client);
    addDebug(app, client);
}

}  // namespace pelto
