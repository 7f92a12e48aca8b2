#pragma once

#include <utils/RefBase.h>

#include <cstdint>

namespace android {

// The receiver of the events of a watched descriptor.
// Threads: handleEvent() runs on the looper's thread, with no lock of the looper held.
class PeltoLooperCallback : public virtual RefBase {
  public:
    virtual ~PeltoLooperCallback() = default;
    // Returns 0 to end the watch, anything else to keep it. `events` are LOOPER_EVENT_ flags.
    virtual int32_t handleEvent(int32_t fd, int32_t events, void* data) = 0;
};

using PeltoLooperCallbackFunction = int (*)(int fd, int events, void* data);

// Makes a plain function a callback object.
class PeltoSimpleLooperCallback : public PeltoLooperCallback {
  public:
    explicit PeltoSimpleLooperCallback(PeltoLooperCallbackFunction callback)
        : mCallback(callback) {}
    ~PeltoSimpleLooperCallback() override = default;
    int32_t handleEvent(int32_t fd, int32_t events, void* data) override {
        return mCallback(fd, events, data);
    }

  private:
    PeltoLooperCallbackFunction mCallback;
};

}  // namespace android
