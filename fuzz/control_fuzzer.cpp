// Has the control commands run requests. An input is requests with newlines between them. Replies
// fit their wire format, time never goes back, and what a command sends arrives.
#include <linux/netlink.h>
#include <string.h>

#include "fuzz/fuzz_input.h"
#include "fuzz/fuzz_phone.h"
#include "sim/base/clock.h"
#include "sim/base/text.h"
#include "sim/control/server.h"
#include "sim/kernel/display_kernel.h"
#include "sim/kernel/generic_netlink.h"

namespace {

using Words = sim::Control::Arguments;

// The readers of what the commands send.
class World {
  public:
    World()
        : mSocket(mPhone.netlink().socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK, NETLINK_GENERIC)),
          mDisplay(mPhone.displayKernel().open()) {
        const uint8_t registers[] = {24, 0, 0, 0, 28, 0, 1, 0, 0, 0, 0, 0,
                                     0,  0, 0, 0, 1,  1, 0, 0, 4, 0, 1, 0};
        const std::string_view message(reinterpret_cast<const char*>(registers), sizeof(registers));
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        mPhone.netlink().sendto(mSocket.get(), message, 0, reinterpret_cast<sockaddr*>(&kernel),
                                sizeof(kernel));
        require(mPhone.netlink().waitRegistered(std::chrono::seconds(10)), "it is registered");
    }

    void run(const Words& words) {
        const sim::Clock& clock = sim::Clock::get();
        const int64_t before = clock.monotonicNanos();
        const sim::Reply reply = mPhone.control().run(words);
        require(clock.monotonicNanos() >= before && clock.wallNanos() > 0, "time goes on");
        check(reply);
        if (words[0] == "fault") endFaults(words);
        if (!reply.ok) return;
        if (words[0] == "display") checkDisplay(words);
        if (words[0] == "audio-raw") require(received() == sim::bytesOfHex(words[1]), "it arrives");
        if (words[0] == "audio")
            require(received().find(words[2] + '\0') != std::string::npos, "its text arrives");
    }

  private:
    static void check(const sim::Reply& reply) {
        require(reply.ok || (reply.texts.size() == 1 && !reply.texts[0].empty()),
                "an error is one text");
        require(reply.retryFor < sim::kReplyTimeout,
                "it is retried for less than its client waits");
        Words texts{"ok"};
        texts.insert(texts.end(), reply.texts.begin(), reply.texts.end());
        require(sim::splitTexts(sim::joinTexts(texts)) == texts, "the texts hold no NUL");
    }
    void endFaults(const Words& words) {
        for (const Words& end : {Words{"fault", "disk", "free"}, {"fault", "reports", "take"}})
            require(mPhone.control().run(end).ok, "the fault ends");
        if (words.size() > 2) mPhone.control().run({"fault", "program", words[2], "run"});
    }
    void checkDisplay(const Words& words) {
        sim::DisplayRecord record;
        require(mDisplay->receive(&record), "the record arrives");
        require(record.id == words[1] && record.payload == words[2], "as it was sent");
    }
    std::string received() {
        std::string datagram(1 << 16, '\0');
        const ssize_t got = recv(mSocket.get(), datagram.data(), datagram.size(), 0);
        datagram.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return datagram;
    }

    sim::Phone& mPhone = fuzzPhone();
    const sim::Fd mSocket;
    const std::shared_ptr<sim::DisplayChannel> mDisplay;
};

// Whether it asks for a big snapshot, which takes long to make.
bool isSlow(const Words& words) {
    for (const std::string& word : words) {
        if (words[0] == "gpu" && word.size() > 5 &&
            word.find_first_not_of("0123456789") == word.npos)
            return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static World& world = *new World;
    FuzzInput input(data, size);
    while (!input.empty()) {
        const std::string request(input.until('\n'));
        const Words words = sim::splitTexts(request);
        require(sim::joinTexts(words) == request, "split and joined it is the same");
        if (!isSlow(words)) world.run(words);
    }
    return 0;
}
