#include "sim/control/kernel_commands.h"

#include <charconv>
#include <map>
#include <stdexcept>

#include "sim/base/hex.h"
#include "sim/control/control.h"
#include "sim/kernel/display_kernel.h"
#include "sim/kernel/generic_netlink.h"
#include "sim/phone.h"

namespace sim {
namespace {

using Arguments = Control::Arguments;

const Arguments& expect(const Arguments& arguments, size_t count, const char* usage) {
    if (arguments.size() == count) return arguments;
    throw std::runtime_error(std::string("usage: ") + usage);
}

int32_t commandOf(const std::string& text) {
    int32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end)
        throw std::runtime_error("'" + text + "' is not a 32-bit number");
    return number;
}

constexpr size_t kMostText = 65000;  // its length travels in 16 bits
// What the fields of the display driver's record hold, each before a NUL.
constexpr size_t kMostId = 131;
constexpr size_t kMostPayload = 3831;

template <typename Outcome>
Reply replyTo(Outcome outcome, const char* nobody) {
    if (outcome == Outcome::kQueued) return {true, {}};
    return {false, {outcome == Outcome::kNobody ? nobody : "the queue is full"}};
}

constexpr char kNotRegistered[] = "nobody has registered with the audio module";

Reply pushAudio(GenericNetlink& netlink, const Arguments& arguments) {
    expect(arguments, 2, "audio CMD TEXT");
    if (arguments[1].size() > kMostText) return {false, {"a text has at most 65000 bytes"}};
    return replyTo(netlink.push(commandOf(arguments[0]), arguments[1]), kNotRegistered);
}

Reply awaitRegistration(GenericNetlink& netlink) {
    constexpr std::chrono::seconds kPatience{10};
    if (netlink.waitRegistered(std::chrono::seconds(0))) return {true, {}};
    return {false, {kNotRegistered}, kPatience};
}

Reply pushRaw(GenericNetlink& netlink, const Arguments& arguments) {
    expect(arguments, 1, "audio-raw HEX");
    const std::string bytes = bytesOfHex(arguments[0]);
    if (bytes.empty()) return {false, {"a netlink datagram has at least one byte"}};
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
    if (answer == kAnswers.end()) return {false, {"'" + arguments[0] + "' is no such answer"}};
    netlink.setAnswer(answer->second);
    return {true, {}};
}

Reply listReceived(GenericNetlink& netlink) {
    Reply reply{true, {}};
    for (const std::string& datagram : netlink.received()) reply.texts.push_back(hexOf(datagram));
    return reply;
}

Reply sendDisplay(DisplayKernel& display, const Arguments& arguments) {
    expect(arguments, 2, "display ID PAYLOAD");
    if (arguments[0].size() > kMostId || arguments[1].size() > kMostPayload)
        return {false, {"an ID has at most 131 bytes, a PAYLOAD at most 3831 bytes"}};
    return replyTo(display.send({arguments[0], arguments[1]}), "nobody listens to the display");
}

}  // namespace

void addKernelCommands(Phone& phone) {
    Control& control = phone.control();
    GenericNetlink& netlink = phone.netlink();
    DisplayKernel& display = phone.displayKernel();
    control.add("audio", [&](const Arguments& words) { return pushAudio(netlink, words); });
    control.add("audio-await", [&](const Arguments&) { return awaitRegistration(netlink); });
    control.add("audio-raw", [&](const Arguments& words) { return pushRaw(netlink, words); });
    control.add("audio-answer", [&](const Arguments& words) { return setAnswer(netlink, words); });
    control.add("audio-received", [&](const Arguments&) { return listReceived(netlink); });
    control.add("display", [&](const Arguments& words) { return sendDisplay(display, words); });
}

}  // namespace sim
