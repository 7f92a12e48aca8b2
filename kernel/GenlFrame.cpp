#include "kernel/GenlFrame.h"

#include <cstring>

namespace android {

// The attribute claims one byte more than its header and data, and the last data byte is not copied
// but stays zero: the kernel module expects this.
void GenlFrame::fill(uint16_t type, uint32_t portId, uint8_t cmd, uint16_t attributeType,
                     const void* payload, int32_t length) {
    *this = {};
    attribute.nla_len = static_cast<uint16_t>(length + NLA_HDRLEN + 1);
    attribute.nla_type = attributeType;
    header.nlmsg_len =
        static_cast<uint32_t>(NLMSG_HDRLEN + GENL_HDRLEN) + NLA_ALIGN(attribute.nla_len);
    header.nlmsg_type = type;
    header.nlmsg_flags = NLM_F_REQUEST;
    header.nlmsg_pid = portId;
    genl.cmd = cmd;
    genl.version = 1;
    memcpy(data, payload, static_cast<size_t>(length - 1));
}

bool GenlFrame::isWhole(int32_t received) const {
    return received >= static_cast<int32_t>(sizeof(header)) && header.nlmsg_len >= sizeof(header) &&
           header.nlmsg_len <= static_cast<uint32_t>(received);
}

bool GenlFrame::isMessage(int32_t received) const {
    return header.nlmsg_type != NLMSG_ERROR && isWhole(received);
}

uint16_t GenlFrame::familyId(int32_t received) const {
    if (attribute.nla_len < NLA_HDRLEN) return 0;
    const size_t second = offsetof(GenlFrame, attribute) + NLA_ALIGN(attribute.nla_len);
    nlattr found;
    uint16_t id = 0;
    if (second + sizeof(found) + sizeof(id) > static_cast<size_t>(received)) return 0;
    const char* const bytes = reinterpret_cast<const char*>(this);
    memcpy(&found, bytes + second, sizeof(found));
    memcpy(&id, bytes + second + sizeof(found), sizeof(id));
    return found.nla_type == CTRL_ATTR_FAMILY_ID ? id : 0;
}

}  // namespace android
