#include "looper/PeltoMessageHandler.h"

namespace android {

PeltoWeakMessageHandler::PeltoWeakMessageHandler(const wp<PeltoMessageHandler>& handler)
    : mHandler(handler) {}

void PeltoWeakMessageHandler::handleMessage(const PeltoMessage& message) {
    const sp<PeltoMessageHandler> handler = mHandler.promote();
    if (handler != nullptr) handler->handleMessage(message);
}

}  // namespace android
