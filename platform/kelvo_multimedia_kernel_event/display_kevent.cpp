#include <android/log.h>
#include <kelvo_multimedia_kernel_event/DisplayKevent.h>
#include <sim/kernel/display_kernel.h>
#include <sim/phone.h>

#include <algorithm>
#include <cstring>

namespace android {

namespace {

// Fills the field with the text, cut to leave room for the terminator.
template <size_t kSize>
void fill(char (&field)[kSize], const std::string& text) {
    memset(field, 0, kSize);
    memcpy(field, text.data(), std::min(text.size(), kSize - 1));
}

}  // namespace

// The simulated display driver's channel, which the records come from.
struct DisplayKevent::Source {
    const std::shared_ptr<sim::DisplayChannel> channel = sim::Phone::get().displayKernel().open();
};

DisplayKevent::DisplayKevent(void* owner, const char* channelName, Hook hook)
    : mOwner(owner), mName(channelName), mHook(hook), mSource(new Source), mPacket() {}

DisplayKevent::~DisplayKevent() = default;

bool DisplayKevent::threadLoop() {
    sim::DisplayRecord record;
    if (!mSource->channel->receive(&record)) {
        __android_log_print(ANDROID_LOG_DEBUG, "DisplayKevent", "%s has ended", mName.c_str());
        return false;
    }
    mPacket = {};
    fill(mPacket.event_id, record.id);
    fill(mPacket.payload, record.payload);
    if (mHook != nullptr) mHook(mOwner, &mPacket);
    return true;
}

}  // namespace android
