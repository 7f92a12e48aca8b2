#include <android/log.h>
#include <binder/transport/object_quota.h>

#include <algorithm>

namespace android::transport {

bool ObjectQuota::take(const sim::ProcessId& giver) {
    if (mGiven.size() >= mForgetAt && mGiven.count(giver) == 0) forgetEnded();
    size_t& given = mGiven[giver];
    if (given < kMaxObjects) {
        ++given;
        return true;
    }
    if (given == kMaxObjects) {
        ++given;
        __android_log_print(ANDROID_LOG_ERROR, "Binder",
                            "process %d has given %zu objects; its calls with more fail",
                            static_cast<int>(giver.pid), kMaxObjects);
    }
    return false;
}

void ObjectQuota::forgetEnded() {
    for (auto entry = mGiven.begin(); entry != mGiven.end();) {
        entry = entry->first.runs() ? std::next(entry) : mGiven.erase(entry);
    }
    mForgetAt = std::max<size_t>(64, 2 * mGiven.size());
}

}  // namespace android::transport
