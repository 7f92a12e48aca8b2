#pragma once

#include <utils/RefBase.h>

#include "looper/PeltoMessage.h"

namespace android {

// The receiver of a looper's messages. A queued message keeps its handler alive.
// Threads: handleMessage() runs on the looper's thread, with no lock of the looper held.
class PeltoMessageHandler : public virtual RefBase {
  public:
    virtual ~PeltoMessageHandler() = default;
    // The message is valid during the call.
    virtual void handleMessage(const PeltoMessage& message) = 0;
};

// Delivers to another handler without keeping it alive; drops messages silently once it is gone.
class PeltoWeakMessageHandler : public PeltoMessageHandler {
  public:
    explicit PeltoWeakMessageHandler(const wp<PeltoMessageHandler>& handler) : mHandler(handler) {}
    ~PeltoWeakMessageHandler() override = default;
    void handleMessage(const PeltoMessage& message) override {
        const sp<PeltoMessageHandler> handler = mHandler.promote();
        if (handler != nullptr) handler->handleMessage(message);
    }

  private:
    wp<PeltoMessageHandler> mHandler;
};

}  // namespace android
