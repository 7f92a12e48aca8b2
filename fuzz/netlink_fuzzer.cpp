// Sends datagrams to the simulated kernel, which takes them apart and answers, and behind each a
// look-up, which it must still answer.
#include <errno.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>

#include "fuzz/fuzz_phone.h"
#include "sim/base/fd.h"
#include "sim/kernel/generic_netlink.h"
#include "sim/kernel/genl_messages.h"

namespace {

constexpr size_t kMaxDatagram = 1024;  // more messages would have more answers than fit the queue

size_t aligned(size_t size) {
    return (size + 3) / 4 * 4;
}

template <typename T>
T read(std::string_view bytes, size_t at) {
    T value;
    memcpy(&value, bytes.substr(at, sizeof(T)).data(), sizeof(T));
    return value;
}

// The value of the first attribute of that type, found by position.
std::optional<std::string_view> attributeIn(std::string_view bytes, uint16_t type) {
    for (size_t at = 0; at + 4 <= bytes.size();) {
        const size_t length = read<uint16_t>(bytes, at);
        if (length < 4 || at + length > bytes.size()) break;
        if (read<uint16_t>(bytes, at + 2) == type) return bytes.substr(at + 4, length - 4);
        at += aligned(length);
    }
    return std::nullopt;
}

// Compares the messages taken off a datagram with those found by position.
void checkMessages(std::string_view datagram) {
    std::string_view rest = datagram;
    for (size_t at = 0;; at += aligned(read<uint32_t>(datagram, at))) {
        const bool isThere = at + 16 <= datagram.size() && read<uint32_t>(datagram, at) >= 16 &&
                             read<uint32_t>(datagram, at) <= datagram.size() - at;
        const auto message = sim::takeMessage(&rest);
        require(message.has_value() == isThere, "a message is taken where one is");
        if (!isThere) return;
        const std::string_view bytes = datagram.substr(at, read<uint32_t>(datagram, at));
        require(message->bytes.data() == bytes.data() && message->bytes == bytes, "its bytes");
        require(message->type == read<uint16_t>(bytes, 4), "its type");
        require(message->hasGenlHeader == (bytes.size() >= 20), "its header");
        const std::string_view attributes = bytes.substr(std::min<size_t>(20, bytes.size()));
        for (const uint16_t type : {uint16_t{1}, uint16_t{2}}) {
            require(sim::attributeOf(*message, type) == attributeIn(attributes, type),
                    "its attributes");
        }
    }
}

class Client {
  public:
    Client() : mSocket(mKernel.socket(AF_NETLINK, SOCK_RAW, NETLINK_GENERIC)) {
        const timeval timeout{5, 0};
        setsockopt(mSocket.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    }

    void send(std::string_view datagram) {
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        const ssize_t sent = mKernel.sendto(mSocket.get(), datagram, 0,
                                            reinterpret_cast<sockaddr*>(&kernel), sizeof(kernel));
        require(sent == static_cast<ssize_t>(datagram.size()), "it is sent");
    }
    // Sends a look-up and waits for its answer behind those to earlier messages.
    void lookUp() {
        const nlmsghdr header{36, GENL_ID_CTRL, NLM_F_REQUEST, ++mNumber, 0};
        std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
        bytes += std::string(
            "\x03\x01\x00\x00\x0f\x00\x02\x00"
            "aud_knl_nt\0\0",
            20);
        send(bytes);
        for (;;) {
            const std::string answer = receive();
            std::string_view rest = answer;
            const auto message = sim::takeMessage(&rest);
            require(message && rest.empty(), "an answer is one message");
            if (message->seq != mNumber || message->type != GENL_ID_CTRL) continue;
            const auto id = sim::attributeOf(*message, CTRL_ATTR_FAMILY_ID);
            require(id && read<uint16_t>(*id, 0) == sim::GenericNetlink::kFamilyId, "the family");
            return;
        }
    }

  private:
    std::string receive() {
        std::string datagram(8192, '\0');
        require(mKernel.mayReceive(mSocket.get()), "no answer is lost");
        ssize_t got;
        do {
            got = recv(mSocket.get(), datagram.data(), datagram.size(), 0);
        } while (got < 0 && errno == EINTR);  // by the fuzzing engine's timer
        require(got > 0, "the look-up is answered");
        datagram.resize(static_cast<size_t>(got));
        return datagram;
    }

    sim::GenericNetlink& mKernel = fuzzPhone().netlink();
    const sim::Fd mSocket;
    uint32_t mNumber = 0x5eed0000;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Client& client = *new Client;
    const std::string_view datagram(reinterpret_cast<const char*>(data),
                                    std::min(size, kMaxDatagram));
    checkMessages(datagram);
    client.send(datagram);
    client.lookUp();
    return 0;
}
