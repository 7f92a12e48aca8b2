#pragma once

#include <linux/genetlink.h>
#include <linux/netlink.h>

#include <cstddef>
#include <cstdint>

namespace android {

// One message of the audio module's generic-netlink protocol, sent or received, in host byte order.
// A frame is zeroed before it is filled or received into, so bytes that a message omits, or claims
// beyond its end, read as zeros.
struct GenlFrame {
    nlmsghdr header;
    genlmsghdr genl;
    nlattr attribute;
    char data[252];

    // Fills in a request with the first `length` - 1 bytes of `payload`; `length` is from 1 to 251.
    void fill(uint16_t type, uint32_t portId, uint8_t cmd, uint16_t attributeType,
              const void* payload, int32_t length);

    // Whether the `received` bytes hold the whole message, by the length in its header.
    bool isWhole(int32_t received) const;
    bool isMessage(int32_t received) const;

    // The family id in the controller's reply: the value of the second attribute. 0 when that has
    // another type or lies outside the received bytes.
    uint16_t familyId(int32_t received) const;

    // Bytes of data that the first attribute claims; negative when it is shorter than its header.
    int32_t dataLength() const { return attribute.nla_len - static_cast<int32_t>(NLA_HDRLEN); }
};

static_assert(offsetof(GenlFrame, genl) == 16);
static_assert(offsetof(GenlFrame, attribute) == 20);
static_assert(offsetof(GenlFrame, data) == 24);
static_assert(sizeof(GenlFrame) == 276);

}  // namespace android
