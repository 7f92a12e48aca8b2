// Callers from other builds find virtual operations by their slot in the table.
#include <gtest/gtest.h>
#include <utils/Thread.h>

#include <cstring>

#include "event/EventListener.h"
#include "logcapture/KelvoDmesgThread.h"
#include "looper/PeltoLooperCallback.h"
#include "looper/PeltoMessageHandler.h"
#include "service/PeltoService.h"

namespace android {
namespace {

// The slot of a virtual operation in its class's table. ARM marks a virtual offset in the second
// word, other machines by an odd first word.
template <typename Operation>
ptrdiff_t slotOf(Operation operation) {
    ptrdiff_t raw[2];  // the offset, and an adjustment
    static_assert(sizeof raw == sizeof operation);
    memcpy(raw, &operation, sizeof raw);
#if !defined(__arm__) && !defined(__aarch64__)
    --raw[0];
#endif
    return raw[0] / static_cast<ptrdiff_t>(sizeof(void*));
}

using Slots = std::vector<ptrdiff_t>;
template <typename... Operations>
Slots slotsOf(Operations... operations) {
    return {slotOf(operations)...};
}

TEST(SlotOrderTest, OperationsStandInTheirOrder) {
    // A listener's operation precedes its destructor, a handler's follows it.
    EXPECT_EQ((Slots{0, 2, 2}),
              slotsOf(&EventListener::handleEvent, &PeltoMessageHandler::handleMessage,
                      &PeltoLooperCallback::handleEvent));
    EXPECT_EQ((Slots{2, 3, 4, 5, 6, 7, 8}),
              slotsOf(&Thread::run, &Thread::requestExit, &Thread::readyToRun,
                      &KelvoDmesgThread::threadLoop, &KelvoDmesgThread::onFirstRef,
                      &KelvoDmesgThread::initCheck, &KelvoDmesgThread::handleEvent));
    const auto first = slotOf(&IPeltoService::registerNativeClient);
    EXPECT_EQ((Slots{first + 1, first + 2, first + 3, first + 4, first + 5, first + 6}),
              slotsOf(&IPeltoService::notifyVideoStutter, &IPeltoService::updateSFStateFlag,
                      &IPeltoService::updateTopActivity, &IPeltoService::setEvent,
                      &IPeltoService::setEventToNative, &IPeltoService::setDebugLog));
    EXPECT_EQ(slotOf(&IPeltoNativeClient::getInterfaceDescriptor) + 1,
              slotOf(&IPeltoNativeClient::onNativeEvent));
}

}  // namespace
}  // namespace android
