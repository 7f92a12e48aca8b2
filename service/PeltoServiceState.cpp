// The operations about video on the display: stutter, the display's state, the top activity.
#include <android-base/properties.h>
#include <android/log.h>
#include <utils/SystemClock.h>

#include "service/PeltoService.h"

namespace android {

namespace {
constexpr char kTopActivityProperty[] = "sys.kelvo.video.top.activity.name";
}  // namespace

void PeltoService::notifyVideoStutter(const String8& detectorName, int frameGap) {
    if (mSfState && detectorName == String8("HwuiDetect")) {
        __android_log_print(ANDROID_LOG_WARN, kServiceTag,
                            "notifyVideoStutter return, not report frameGap:%d", frameGap);
        return;
    }
    setEvent(String8("pelto_event_video_stutter_ext"),
             String8::format("detectName#%s#frameGap#%d", detectorName.c_str(), frameGap));
}

void PeltoService::updateSFStateFlag(bool state) {
    mSfState = state;
    if (debugLog()) {
        __android_log_print(ANDROID_LOG_VERBOSE, kServiceTag, "updateSFState  sfState:%d", state);
    }
}

void PeltoService::updateTopActivity(int64_t minIntervalMillis) {
    if (!acceptActivityUpdate(minIntervalMillis)) return;
    base::SetProperty(kTopActivityProperty, "");
    setEvent(String8("pelto_event_video_update_top_activity"), String8(""));
}

bool PeltoService::acceptActivityUpdate(int64_t minIntervalMillis) {
    Mutex::Autolock lock(mLock);
    const int64_t now = elapsedRealtime();
    if (mUpdateActivityTime != 0 && minIntervalMillis >= now - mUpdateActivityTime) return false;
    // The last value in the line is always 0, on purpose.
    __android_log_print(ANDROID_LOG_DEBUG, kServiceTag,
                        "Update top activity name: mUpdateActivityTime=%lld currentTime=%lld "
                        "isSetEvent=%d",
                        static_cast<long long>(mUpdateActivityTime), static_cast<long long>(now),
                        0);
    mUpdateActivityTime = now;
    return true;
}

}  // namespace android
