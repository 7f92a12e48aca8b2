#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

// Generic-netlink messages as the kernel reads and writes them, byte for byte (host byte order).

constexpr uint16_t kControllerId = 16;

// One message of a datagram; `attributes` follows the generic-netlink header.
struct GenlMessage {
    uint16_t type = 0;
    uint16_t flags = 0;
    uint32_t seq = 0;
    uint8_t cmd = 0;
    bool hasGenlHeader = false;
    std::string_view bytes;
    std::string_view attributes;
};

// Takes the first message off `datagram`; nothing when the rest is not a message.
std::optional<GenlMessage> takeMessage(std::string_view* datagram);

// The first attribute of that type.
std::optional<std::string_view> attributeOf(const GenlMessage& message, uint16_t type);

// The controller's answer for a family of version 1 with one attribute and one operation.
std::string familyReply(std::string_view name, uint16_t familyId, uint32_t seq, uint32_t portId);

// NLMSG_ERROR: an error (negative) repeats the request, an acknowledgement (0) its header only.
std::string errorReply(const GenlMessage& request, int error, uint32_t portId);

// A packet of the audio module: sequence number, port id and flags 0, the message padded to 4
// bytes, its attribute not.
std::string audioPacket(uint16_t familyId, int32_t cmd, std::string_view text);

}  // namespace sim
