#include "sim/control/kernel_commands.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "sim/base/clock.h"
#include "sim/base/text.h"
#include "sim/control/server.h"
#include "sim/kernel/display_kernel.h"
#include "sim/kernel/generic_netlink.h"
#include "sim/kernel/gpu.h"

namespace sim {
namespace {

using Arguments = Control::Arguments;

constexpr size_t kMaxText = 65000;  // a netlink attribute gives its length in 16 bits
// The most bytes before the NUL in the fields of the display driver's record.
constexpr size_t kMaxId = 131;
constexpr size_t kMaxPayload = 3831;
constexpr size_t kMaxSnapshotBytes = 64 << 20;

const Arguments& expect(const Arguments& arguments, size_t count, const char* usage) {
    if (arguments.size() == count) return arguments;
    throw std::invalid_argument(std::string("usage: ") + usage);
}

int32_t commandOf(const std::string& text) {
    if (const auto number = numberIn(text, INT32_MIN, INT32_MAX))
        return static_cast<int32_t>(*number);
    throw std::invalid_argument("'" + text + "' is not a 32-bit number");
}

template <typename Outcome>
Reply replyTo(Outcome outcome, const char* nobody) {
    if (outcome == Outcome::kQueued) return {true, {}};
    return {false, {outcome == Outcome::kNobody ? nobody : "the queue is full"}};
}

constexpr char kNotRegistered[] = "nobody has registered with the audio module";

Reply pushAudio(GenericNetlink& netlink, const Arguments& arguments) {
    expect(arguments, 2, "audio CMD TEXT");
    if (arguments[1].size() > kMaxText)
        throw std::invalid_argument("a text has at most 65000 bytes");
    return replyTo(netlink.push(commandOf(arguments[0]), arguments[1]), kNotRegistered);
}

Reply awaitRegistration(GenericNetlink& netlink, const Arguments& arguments) {
    expect(arguments, 0, "audio-await");
    constexpr std::chrono::seconds kTimeout{10};
    if (netlink.waitRegistered(std::chrono::seconds(0))) return {true, {}};
    return {false, {kNotRegistered}, kTimeout};
}

Reply pushRaw(GenericNetlink& netlink, const Arguments& arguments) {
    expect(arguments, 1, "audio-raw HEX");
    const std::string bytes = bytesOfHex(arguments[0]);
    if (bytes.empty()) throw std::invalid_argument("a netlink datagram has at least one byte");
    return replyTo(netlink.pushRaw(bytes), "nobody has a netlink socket");
}

Reply setAnswer(GenericNetlink& netlink, const Arguments& arguments) {
    static const std::map<std::string, GenericNetlink::Answer> kAnswers = {
        {"family", GenericNetlink::Answer::kFamily},
        {"none", GenericNetlink::Answer::kNoFamily},
        {"nothing", GenericNetlink::Answer::kNothing},
    };
    expect(arguments, 1, "audio-answer family|none|nothing");
    const auto answer = kAnswers.find(arguments[0]);
    if (answer == kAnswers.end())
        throw std::invalid_argument("'" + arguments[0] + "' is no such answer");
    netlink.setAnswer(answer->second);
    return {true, {}};
}

Reply listReceived(GenericNetlink& netlink, const Arguments& arguments) {
    expect(arguments, 0, "audio-received");
    Reply reply{true, {}};
    for (const std::string& datagram : netlink.received()) reply.texts.push_back(hexOf(datagram));
    return reply;
}

Reply sendDisplay(DisplayKernel& display, const Arguments& arguments) {
    expect(arguments, 2, "display ID PAYLOAD");
    if (arguments[0].size() > kMaxId || arguments[1].size() > kMaxPayload)
        throw std::invalid_argument("an ID has at most 131 bytes, a PAYLOAD at most 3831 bytes");
    return replyTo(display.send({arguments[0], arguments[1]}), "nobody listens to the display");
}

[[noreturn]] void refuseGpu(const std::string& why) {
    throw std::invalid_argument("gpu: " + why);
}

size_t readSize(const std::string& text) {
    if (const auto size = numberIn(text, 0, kMaxSnapshotBytes)) return static_cast<size_t>(*size);
    refuseGpu("'" + text + "' is no size from 0 to " + std::to_string(kMaxSnapshotBytes));
}

// Parses "--name value" pairs after the verb into `values`, which holds the defaults; refuses names
// that are not in it.
void readOptions(const Arguments& words, std::map<std::string, std::string>& values) {
    for (size_t i = 1; i < words.size(); i += 2) {
        auto value = values.find(words[i]);
        if (value == values.end()) refuseGpu("'" + words[i] + "' is no option of " + words[0]);
        if (i + 1 == words.size()) refuseGpu(words[i] + " takes a value");
        if (words[i + 1].size() > Attributes::kMaxReadBytes) refuseGpu(words[i] + " is too long");
        value->second = words[i + 1];
    }
}

std::string onlyArgument(const Arguments& words) {
    if (words.size() != 2) refuseGpu(words[0] + " takes one argument");
    return words[1];
}

void raiseFault(Gpu& gpu, const Arguments& words) {
    const int64_t seconds = Clock::get().wallNanos() / 1000000000;
    std::map<std::string, std::string> values{{"--hash", ""},
                                              {"--timestamp", std::to_string(seconds) + "\n"},
                                              {"--control", "0\n"},
                                              {"--size", "65536"}};
    readOptions(words, values);
    gpu.fault({values["--timestamp"], values["--hash"], values["--control"],
               Gpu::snapshotOf(readSize(values["--size"]))});
}

void vanish(Gpu& gpu, const Arguments& words) {
    std::map<std::string, std::string> values{{"--after", ""}};
    readOptions(words, values);
    if (values["--after"].empty()) {
        gpu.vanish();
    } else {
        gpu.vanishAfter(readSize(values["--after"]));
    }
}

void makeUnreadable(Gpu& gpu, const Arguments& words) {
    const std::string file = onlyArgument(words);
    for (const std::string path : {Gpu::kTimestamp, Gpu::kControl, Gpu::kHashId, Gpu::kDump}) {
        if (path.substr(path.rfind('/') + 1) == file) return gpu.makeUnreadable(path);
    }
    refuseGpu("there is no file '" + file + "'");
}

// Waits longer than the reader takes to collect a fault: over 20 s on a running clock.
Reply awaitReader(Gpu& gpu) {
    constexpr std::chrono::seconds kTimeout{60};
    if (gpu.hasReader()) return {true, {}};
    return {false,
            {"gpu: nobody waits for the next fault yet, or the last one may not be dumped"},
            kTimeout};
}

Reply runGpu(Gpu& gpu, const Arguments& words) {
    const std::string verb = words.empty() ? "" : words[0];
    if (verb == "fault") {
        raiseFault(gpu, words);
    } else if (verb == "control") {
        gpu.setControl(onlyArgument(words));
    } else if (verb == "vanish") {
        vanish(gpu, words);
    } else if (verb == "unreadable") {
        makeUnreadable(gpu, words);
    } else if (verb == "short-reads") {
        gpu.shortenReads(readSize(onlyArgument(words)));
    } else if (verb == "appear" && words.size() == 1) {
        gpu.appear();
    } else if (verb == "await-reader" && words.size() == 1) {
        return awaitReader(gpu);
    } else {
        refuseGpu("takes fault, control, vanish, appear, unreadable, short-reads or await-reader");
    }
    return {true, {}};
}

}  // namespace

void addAudioCommands(Control& control, GenericNetlink& netlink) {
    control.add("audio", [&](const Arguments& words) { return pushAudio(netlink, words); });
    control.add("audio-await",
                [&](const Arguments& words) { return awaitRegistration(netlink, words); });
    control.add("audio-raw", [&](const Arguments& words) { return pushRaw(netlink, words); });
    control.add("audio-answer", [&](const Arguments& words) { return setAnswer(netlink, words); });
    control.add("audio-received",
                [&](const Arguments& words) { return listReceived(netlink, words); });
}

void addDisplayCommand(Control& control, DisplayKernel& display) {
    control.add("display", [&](const Arguments& words) { return sendDisplay(display, words); });
}

void addGpuCommand(Control& control, Gpu& gpu) {
    control.add("gpu", [&gpu](const Arguments& words) { return runGpu(gpu, words); });
}

}  // namespace sim
