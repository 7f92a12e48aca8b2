#include "kernel/KelvoAudioKernelNativeCom.h"

#include <android/log.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "kernel/GenlFrame.h"
#include "phone/phone.h"

#define LOG_DEBUG(...) __android_log_print(ANDROID_LOG_DEBUG, kTag, __VA_ARGS__)
#define LOG_ERROR(...) __android_log_print(ANDROID_LOG_ERROR, kTag, __VA_ARGS__)

namespace android {

namespace {

constexpr char kTag[] = "KelvoAudioKernelNativeCom";
constexpr char kFamilyName[] = "aud_knl_nt";
constexpr size_t kMaxModule = 62;
constexpr uint32_t kPortIdOffset = 100000;
constexpr int32_t kInvalid = -22;
constexpr int32_t kMaxData = 251;
constexpr int kMaxAttribute = 256;
constexpr uint8_t kRegister = 1;
constexpr uint16_t kAttribute = 1;

sockaddr_nl address(uint32_t portId) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = portId;
    return address;
}

}  // namespace

KelvoAudioKernelNativeCom::KelvoAudioKernelNativeCom(void* owner, const char* module, Hook hook)
    : Thread(true), mHook(hook), mOwner(owner) {
    if (module == nullptr) {
        LOG_ERROR("[ERROR]: module is null\n");
        return;
    }
    if (strlen(module) > kMaxModule) {
        LOG_ERROR("[ERROR]: module length exceeds limit\n");
        return;
    }
    strncpy(mModule, module, sizeof(mModule) - 1);
    mRecvData = static_cast<kernel_to_native_packet*>(malloc(sizeof(*mRecvData)));
    if (mRecvData == nullptr) {
        LOG_ERROR("[ERROR]: memory allocation failed for mRecvData\n");
        return;
    }
    mPortId = static_cast<uint32_t>(getpid()) + kPortIdOffset;
    mInited = true;
    LOG_DEBUG("audio kernel native genetlink module:%s\n", mModule);
}

// After a failed set-up this closes the socket's descriptor a second time, on purpose, though the
// number may be another file's by then.
KelvoAudioKernelNativeCom::~KelvoAudioKernelNativeCom() {
    free(mRecvData);
    if (fd() >= 0) close(fd());
}

int32_t KelvoAudioKernelNativeCom::createGenlSocket(int32_t protocol) {
    const int socket = phone::socket(AF_NETLINK, SOCK_RAW, protocol);
    if (socket < 0) {
        LOG_ERROR("[ERROR]: create_nl_socket  socket err: %s\n", strerror(errno));
        return -1;
    }
    const sockaddr_nl local = address(mPortId);
    if (phone::bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) < 0) {
        const int error = errno;
        close(socket);
        LOG_ERROR("[ERROR]: bind  socket err: %s\n", strerror(error));
        return -1;
    }
    return socket;
}

int32_t KelvoAudioKernelNativeCom::sendToKernelMsg(uint8_t cmd, uint16_t nlaType, const void* data,
                                                   int32_t len) {
    if (!mInited || family() == 0) {
        LOG_ERROR("[ERROR]: sendToKernelMsg param invalid\n");
        return kInvalid;
    }
    return sendGenlMsg(family(), cmd, nlaType, data, len);
}

int32_t KelvoAudioKernelNativeCom::sendGenlMsg(uint16_t nlmsgType, uint8_t cmd, uint16_t nlaType,
                                               const void* data, int32_t len) {
    if (!mInited || fd() < 0 || data == nullptr || len < 1) {
        LOG_ERROR("[ERROR]: sendGenlMsg param invalid\n");
        return kInvalid;
    }
    if (len > kMaxData) {
        // On purpose prints another limit than the one tested.
        LOG_ERROR("[ERROR]: data len=%d > %d\n", len, kMaxAttribute);
        len = kMaxData;
    }
    GenlFrame frame;
    frame.fill(nlmsgType, mPortId, cmd, nlaType, data, len);
    LOG_DEBUG("nlmsg_type %d, genl_cmd %d, nla_type %d, nla_data=%s\n", nlmsgType, cmd, nlaType,
              frame.data);
    return sendFrame(frame);
}

int32_t KelvoAudioKernelNativeCom::sendFrame(const GenlFrame& frame) {
    const sockaddr_nl kernel = address(0);
    const char* next = reinterpret_cast<const char*>(&frame);
    ssize_t left = static_cast<ssize_t>(frame.header.nlmsg_len);
    for (;;) {
        const ssize_t sent =
            phone::sendto(fd(), next, static_cast<size_t>(left), 0,
                          reinterpret_cast<const sockaddr*>(&kernel), sizeof(kernel));
        if (sent > 0) {
            next += sent;
            left -= sent;
            if (left <= 0) return static_cast<int32_t>(sent);
        } else if (errno != EAGAIN) {
            LOG_ERROR("[ERROR]: sendto failed\n");
            return -1;
        }
    }
}

int32_t KelvoAudioKernelNativeCom::receive(GenlFrame* frame) {
    return static_cast<int32_t>(phone::recvfrom(fd(), frame, sizeof(*frame), 0, nullptr, nullptr));
}

uint16_t KelvoAudioKernelNativeCom::getFamilyId() {
    GenlFrame frame{};
    const int32_t sent = sendGenlMsg(GENL_ID_CTRL, CTRL_CMD_GETFAMILY, CTRL_ATTR_FAMILY_NAME,
                                     kFamilyName, sizeof(kFamilyName));
    if (sent < 0) {
        LOG_ERROR("[ERROR]: send_cmd err, ret is %d \n", sent);
        return 0;
    }
    const int32_t received = receive(&frame);
    if (!frame.isMessage(received)) {
        LOG_ERROR(
            "[ERROR]: recv err, rep_len is %d, msg.n_hd.nlmsg_type is %u, NLMSG_OK((&msg.n_hd) is "
            "%d \n",
            received, frame.header.nlmsg_type, !frame.isWhole(received));
        return 0;
    }
    return frame.familyId(received);
}

int32_t KelvoAudioKernelNativeCom::recvGenlMsg() {
    if (!mInited || fd() < 0) {
        LOG_ERROR("[ERROR]: recvGenlMsg param invalid\n");
        return kInvalid;
    }
    GenlFrame frame{};
    *mRecvData = {};
    const int32_t received = receive(&frame);
    if (!frame.isMessage(received)) {
        LOG_ERROR(
            "[ERROR]: recv err, rcv_len is %d, msg.n_hd.nlmsg_type is %u,"
            "!NLMSG_OK((&msg.n_hd), rcv_len) is %d , msg.n_hd.nlmsg_len is %u\n",
            received, frame.header.nlmsg_type, !frame.isWhole(received), frame.header.nlmsg_len);
        return -1;
    }
    if (frame.attribute.nla_type != kAttribute) {
        LOG_ERROR("[ERROR]:p_na->nla_type err ,%u\n", frame.attribute.nla_type);
        return -1;
    }
    if (frame.attribute.nla_len > kMaxAttribute) {
        LOG_ERROR("[ERROR]:p_na->nla_len = %u > %d\n", frame.attribute.nla_len, kMaxAttribute);
        return -1;
    }
    if (frame.dataLength() < 0) {
        LOG_ERROR("[ERROR]:p_na->nla_len = %u < %d\n", frame.attribute.nla_len, NLA_HDRLEN);
        return -1;
    }
    memcpy(mRecvData, frame.data, static_cast<size_t>(frame.dataLength()));
    LOG_DEBUG("recv cmd=%d, len=%zd, payload:%s\n", mRecvData->cmd,
              static_cast<ssize_t>(static_cast<int32_t>(mRecvData->len)), mRecvData->payload);
    return received;
}

bool KelvoAudioKernelNativeCom::threadLoop() {
    if (!mInited || !setUp()) return false;
    receiveForEver();
    return false;
}

bool KelvoAudioKernelNativeCom::setUp() {
    mGenlFd = createGenlSocket(NETLINK_GENERIC);
    if (fd() < 0) {
        LOG_ERROR("[ERROR]: create or bind Netlink socket err \n");
        return false;
    }
    mFamilyId = getFamilyId();
    if (family() == 0) {
        close(fd());  // the number is kept, here and below
        LOG_ERROR("[ERROR]: get_family_id err\n");
        return false;
    }
    LOG_DEBUG("%s: mGenlFd=%d, mFamilyId=%d\n", "threadLoop", fd(), family());
    const int32_t sent = sendGenlMsg(family(), kRegister, kAttribute, mModule,
                                     static_cast<int32_t>(strlen(mModule) + 1));
    if (sent < 0) {
        close(fd());
        LOG_ERROR("[ERROR]: sendGenlMsg cmd %d err ,ret is %d \n", kRegister, sent);
        return false;
    }
    return true;
}

void KelvoAudioKernelNativeCom::receiveForEver() {
    for (;;) {
        if (recvGenlMsg() < 1 || mHook == nullptr) continue;
        LOG_DEBUG("hook ret=%d \n", mHook(mOwner, mRecvData));
    }
}

}  // namespace android
