#pragma once

#include <binder/Binder.h>
#include <utils/Mutex.h>
#include <utils/String8.h>

#include <cstdint>
#include <deque>
#include <vector>

namespace android {

// The display compositor "SurfaceFlinger", reduced to what the service calls: keeps the notices of
// display conditions.
// Threads: any.
class Compositor : public BBinder {
  public:
    static constexpr uint32_t kDisplayNotice = 22006;
    static constexpr size_t kMaxNotices = 1000;

    struct Notice {
        int32_t eventId;
        String8 info;
    };

    // The latest kMaxNotices notices, oldest first.
    std::vector<Notice> notices() EXCLUDES(mLock);

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override;

  private:
    Mutex mLock;
    std::deque<Notice> mNotices GUARDED_BY(mLock);
};

// Publishes the process's compositor, once, and adds the control command "compositor", which lists
// the notices: "ID INFO" each. Null when the name is taken.
sp<Compositor> startCompositor();

}  // namespace android
