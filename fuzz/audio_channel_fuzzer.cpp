// Passes netlink datagrams to the family look-up as its answer, and to a running channel, which
// must still deliver the good packet that follows each.
#include <string.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "fuzz/fuzz_phone.h"
#include "kernel/GenlFrame.h"
#include "kernel/KelvoAudioKernelNativeCom.h"
#include "sim/kernel/generic_netlink.h"

using namespace android;

namespace {

// A running channel; take() sends it a datagram and then a numbered packet, and waits for that.
class Receiver {
  public:
    Receiver() {
        mChannel = new KelvoAudioKernelNativeCom(this, "knl_nt_com", &hook);
        mChannel->run("kelvo_audio_mic_check");
        require(mKernel.waitReceived(2), "the channel is set up");
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

    static bool hook(void* owner, kernel_to_native_packet* packet) {
        require(strnlen(packet->payload, sizeof(packet->payload)) <= 244, "it is terminated");
        auto* const receiver = static_cast<Receiver*>(owner);
        if (packet->cmd != kMarker) return true;
        std::lock_guard<std::mutex> lock(receiver->mMutex);
        receiver->mSeen = packet->payload;
        receiver->mChanged.notify_all();
        return true;
    }

    sim::GenericNetlink& mKernel = fuzzPhone().netlink();
    sp<KelvoAudioKernelNativeCom> mChannel;
    std::mutex mMutex;
    std::condition_variable mChanged;
    uint64_t mSent = 0;
    std::string mSeen;
};

void lookUp(const uint8_t* data, size_t size) {
    GenlFrame frame{};
    memcpy(&frame, data, size);
    const int32_t received = static_cast<int32_t>(size);
    const uint16_t id = frame.isMessage(received) ? frame.familyId(received) : 0;
    const uint16_t bytes[] = {1, id};  // the attribute's type, then its value
    require(id == 0 || memmem(data, size, bytes, sizeof(bytes)) != nullptr, "the id is received");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lookUp(data, std::min(size, sizeof(GenlFrame)));
    static Receiver& receiver = *new Receiver;
    if (size > 0) receiver.take({reinterpret_cast<const char*>(data), size});
    return 0;
}
