#pragma once

#include <utils/Thread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace android {

struct GenlFrame;

// A message of the audio kernel module.
struct kernel_to_native_packet {
    int32_t cmd;
    uint32_t len;  // as sent by the module; not checked
    char payload[248];
};
static_assert(offsetof(kernel_to_native_packet, len) == 4);
static_assert(offsetof(kernel_to_native_packet, payload) == 8);
static_assert(sizeof(kernel_to_native_packet) == 256);

// The channel to the audio kernel module: a thread that looks up the module's generic-netlink
// family, registers with it and hands every message of it to a hook.
//
// Ownership: `owner` is passed on to the hook and never read; it must outlive the thread.
//   The packet belongs to the channel: the hook copies what it keeps.
// Threads: the hook runs on the channel's thread before the next message is received.
//   sendToKernelMsg() from any thread; no lock guards the socket.
// Order: once set up the thread receives for ever; it ends with the process. A thread that cannot
//   be set up ends and is not started again.
// Errors: a log line and the result of the operation. After a failed set-up the socket's number is
//   kept though the socket is closed, and the destructor closes that number again.
class KelvoAudioKernelNativeCom : public Thread {
  public:
    using Hook = bool (*)(void* owner, kernel_to_native_packet* packet);

    // `module` is the name to register with, at most 62 characters; a longer one, or null, leaves
    // an object that does nothing. A null hook is not called.
    KelvoAudioKernelNativeCom(void* owner, const char* module, Hook hook);
    ~KelvoAudioKernelNativeCom() override;

    // Sends a message to the module. Returns the result of the last sendto(), -1 when sending
    // failed, -22 (EINVAL) when there is no family or no socket yet, or no data. `len` includes a
    // text's terminator; longer data is cut to 250 bytes without it.
    int32_t sendToKernelMsg(uint8_t cmd, uint16_t nlaType, const void* data, int32_t len);
    // As sendToKernelMsg(), to the family with the id `nlmsgType`.
    int32_t sendGenlMsg(uint16_t nlmsgType, uint8_t cmd, uint16_t nlaType, const void* data,
                        int32_t len);
    // Waits for one message and unpacks it for the hook: the bytes received, -1 when it is not a
    // message of the module, -22 when there is no socket.
    int32_t recvGenlMsg();
    // Makes a netlink socket bound to the channel's port id; -1 on failure.
    int32_t createGenlSocket(int32_t protocol);
    // Asks the kernel for the module's family and waits for its answer; 0 for none.
    uint16_t getFamilyId();

  private:
    bool threadLoop() override;

    bool setUp();
    void receiveForEver();
    int32_t sendFrame(const GenlFrame& frame);
    int32_t receive(GenlFrame* frame);
    int32_t fd() const { return mGenlFd.load(std::memory_order_relaxed); }
    uint16_t family() const { return mFamilyId.load(std::memory_order_relaxed); }

    const Hook mHook;
    bool mInited = false;
    kernel_to_native_packet* mRecvData = nullptr;
    char mModule[64] = {};
    // Relaxed: a sender on another thread may still see no socket or family, and is refused.
    std::atomic<int32_t> mGenlFd{-1};
    uint32_t mPortId = 0;
    void* const mOwner;
    std::atomic<uint16_t> mFamilyId{0};
};

}  // namespace android
