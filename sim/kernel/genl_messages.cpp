#include "sim/kernel/genl_messages.h"

#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <string.h>

namespace sim {
namespace {

static_assert(kControllerId == GENL_ID_CTRL);
static_assert(NLMSG_HDRLEN == 16 && GENL_HDRLEN == 4 && NLA_HDRLEN == 4);

constexpr uint32_t kMaxAttribute = 1;
constexpr uint32_t kOperationFlags = GENL_CMD_CAP_DO | GENL_CMD_CAP_HASPOL;

template <typename T>
std::string_view bytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

template <typename T>
T headOf(std::string_view bytes) {
    T value{};
    memcpy(&value, bytes.data(), sizeof(value));
    return value;
}

std::string padded(std::string text) {
    text.resize(NLMSG_ALIGN(text.size()));
    return text;
}

std::string attribute(int type, std::string_view data) {
    const nlattr header{static_cast<uint16_t>(NLA_HDRLEN + data.size()),
                        static_cast<uint16_t>(type)};
    return padded(std::string(bytesOf(header)) += data);
}

std::string number(int type, uint32_t value) {
    return attribute(type, bytesOf(value));
}

std::string message(nlmsghdr header, std::string_view payload) {
    header.nlmsg_len = static_cast<uint32_t>(NLMSG_HDRLEN + payload.size());
    return std::string(bytesOf(header)) += payload;
}

std::string genlPayload(uint8_t cmd, uint8_t version, const std::string& attributes) {
    return std::string(bytesOf(genlmsghdr{cmd, version, 0})) + attributes;
}

}  // namespace

std::optional<GenlMessage> takeMessage(std::string_view* datagram) {
    if (datagram->size() < NLMSG_HDRLEN) return std::nullopt;
    const auto header = headOf<nlmsghdr>(*datagram);
    if (header.nlmsg_len < NLMSG_HDRLEN || header.nlmsg_len > datagram->size()) return std::nullopt;
    GenlMessage taken;
    taken.type = header.nlmsg_type;
    taken.flags = header.nlmsg_flags;
    taken.seq = header.nlmsg_seq;
    taken.bytes = datagram->substr(0, header.nlmsg_len);
    taken.hasGenlHeader = taken.bytes.size() >= NLMSG_HDRLEN + GENL_HDRLEN;
    if (taken.hasGenlHeader) {
        taken.cmd = headOf<genlmsghdr>(taken.bytes.substr(NLMSG_HDRLEN)).cmd;
        taken.attributes = taken.bytes.substr(NLMSG_HDRLEN + GENL_HDRLEN);
    }
    datagram->remove_prefix(std::min<size_t>(NLMSG_ALIGN(header.nlmsg_len), datagram->size()));
    return taken;
}

std::optional<std::string_view> attributeOf(const GenlMessage& message, uint16_t type) {
    std::string_view rest = message.attributes;
    while (rest.size() >= NLA_HDRLEN) {
        const auto header = headOf<nlattr>(rest);
        if (header.nla_len < NLA_HDRLEN || header.nla_len > rest.size()) break;
        if (header.nla_type == type) return rest.substr(NLA_HDRLEN, header.nla_len - NLA_HDRLEN);
        rest.remove_prefix(std::min<size_t>(NLA_ALIGN(header.nla_len), rest.size()));
    }
    return std::nullopt;
}

std::string familyReply(std::string_view name, uint16_t familyId, uint32_t seq, uint32_t portId) {
    constexpr uint8_t kControllerVersion = 2;
    const std::string operation =
        number(CTRL_ATTR_OP_ID, 1) + number(CTRL_ATTR_OP_FLAGS, kOperationFlags);
    const std::string attributes = attribute(CTRL_ATTR_FAMILY_NAME, std::string(name) + '\0') +
                                   attribute(CTRL_ATTR_FAMILY_ID, bytesOf(familyId)) +
                                   number(CTRL_ATTR_VERSION, 1) + number(CTRL_ATTR_HDRSIZE, 0) +
                                   number(CTRL_ATTR_MAXATTR, kMaxAttribute) +
                                   attribute(CTRL_ATTR_OPS, attribute(1, operation));
    return message({0, GENL_ID_CTRL, 0, seq, portId},
                   genlPayload(CTRL_CMD_NEWFAMILY, kControllerVersion, attributes));
}

std::string errorReply(const GenlMessage& request, int error, uint32_t portId) {
    const std::string_view repeated =
        error != 0 ? request.bytes : request.bytes.substr(0, NLMSG_HDRLEN);
    const uint16_t flags = error != 0 ? 0 : NLM_F_CAPPED;
    return message({0, NLMSG_ERROR, flags, request.seq, portId},
                   std::string(bytesOf(error)) += repeated);
}

std::string audioPacket(uint16_t familyId, int32_t cmd, std::string_view text) {
    std::string packet(bytesOf(cmd));
    packet += bytesOf(static_cast<uint32_t>(text.size() + 1));
    packet += text;
    packet += '\0';
    return message({0, familyId, 0, 0, 0}, genlPayload(1, 1, attribute(1, packet)));
}

}  // namespace sim
