// Received netlink datagrams: as the answer to a family look-up, and on a running channel, which
// must deal with each and with the good packet behind it.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "fuzz/fuzz_phone.h"
#include "kernel/GenlFrame.h"
#include "kernel/KelvoAudioKernelNativeCom.h"
#include "sim/generic_netlink.h"

namespace {

using android::GenlFrame;
using android::KelvoAudioKernelNativeCom;

void require(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "not so: %s\n", what);
    abort();
}

// The running channel and its hook, which waits for packets that count on.
class Receiver {
  public:
    static Receiver& get() {
        static Receiver& receiver = *new Receiver;
        return receiver;
    }

    void take(std::string_view datagram) {
        mKernel.pushRaw(datagram);
        std::unique_lock<std::mutex> lock(mMutex);
        const std::string number = std::to_string(++mSent);
        require(mKernel.push(kMarker, number) == sim::GenericNetlink::Pushed::kQueued, "queued");
        require(mChanged.wait_for(lock, std::chrono::seconds(5), [&] { return mSeen == number; }),
                "the packet behind it arrives");
    }

  private:
    static constexpr int32_t kMarker = 0x6b72614d;

    Receiver() {
        mChannel = new KelvoAudioKernelNativeCom(this, "knl_nt_com", &hook);
        mChannel->run("kelvo_audio_mic_check");
        require(mKernel.waitReceived(2), "the channel is set up");
    }

    static bool hook(void* owner, android::kernel_to_native_packet* packet) {
        const size_t length = strnlen(packet->payload, sizeof(packet->payload));
        require(length <= 244, "the payload is terminated");
        auto* const receiver = static_cast<Receiver*>(owner);
        if (packet->cmd != kMarker) return true;
        std::lock_guard<std::mutex> lock(receiver->mMutex);
        receiver->mSeen = packet->payload;
        receiver->mChanged.notify_all();
        return true;
    }

    sim::GenericNetlink& mKernel = fuzzPhone().netlink();
    android::sp<KelvoAudioKernelNativeCom> mChannel;
    std::mutex mMutex;
    std::condition_variable mChanged;
    uint64_t mSent = 0;
    std::string mSeen;
};

void lookUp(const uint8_t* data, size_t size) {
    GenlFrame frame{};
    memcpy(&frame, data, size);
    const int32_t received = static_cast<int32_t>(size);
    if (!frame.isMessage(received)) return;
    const uint16_t id = frame.familyId(received);
    if (id == 0) return;
    const uint16_t bytes[] = {1, id};  // the type and, behind it, the value
    require(memmem(data, size, bytes, sizeof(bytes)) != nullptr, "the id is among the bytes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lookUp(data, std::min(size, sizeof(GenlFrame)));
    if (size > 0) Receiver::get().take({reinterpret_cast<const char*>(data), size});
    return 0;
}
