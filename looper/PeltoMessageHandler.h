#pragma once

#include <utils/RefBase.h>

#include "looper/PeltoMessage.h"

namespace android {

// Whoever receives a looper's messages. A queued message keeps its handler alive.
// Threads: handleMessage() runs on the looper's thread, with no lock of the looper held.
class PeltoMessageHandler : public virtual RefBase {
  public:
    virtual ~PeltoMessageHandler() = default;
    // The message is valid during the call.
    virtual void handleMessage(const PeltoMessage& message) = 0;
};

// Delivers to another handler as long as that exists, without keeping it alive; drops the message
// silently once it is gone.
class PeltoWeakMessageHandler : public PeltoMessageHandler {
  public:
    explicit PeltoWeakMessageHandler(const wp<PeltoMessageHandler>& handler);
    ~PeltoWeakMessageHandler() override = default;
    void handleMessage(const PeltoMessage& message) override;

  private:
    wp<PeltoMessageHandler> mHandler;
};

}  // namespace android
