// Callers from other builds find virtual operations by their slot in the table.
#include <gtest/gtest.h>
#include <ipeltoservice/IPeltoService.h>
#include <utils/Thread.h>

#include <cstring>

#include "event/EventListener.h"
#include "logcapture/KelvoDmesgThread.h"
#include "looper/PeltoLooperCallback.h"
#include "looper/PeltoMessageHandler.h"

namespace android {
namespace {

template <typename... Operations>
std::vector<size_t> slotsOf(Operations... operations) {
    // A pointer to a virtual operation begins with its offset in the table; some machines add 1.
    const auto slotOf = [](auto operation) {
        size_t offset;
        memcpy(&offset, &operation, sizeof offset);
        return offset / sizeof(void*);
    };
    return {slotOf(operations)...};
}

TEST(SlotOrderTest, OperationsStandInTheirOrder) {
    // A listener's operation precedes its destructor, a handler's follows it.
    EXPECT_EQ(
        (std::vector<size_t>{0, 2, 2, 2, 3, 4, 5, 6, 7, 8}),
        slotsOf(&EventListener::handleEvent, &PeltoMessageHandler::handleMessage,
                &PeltoLooperCallback::handleEvent, &Thread::run, &Thread::requestExit,
                &Thread::readyToRun, &KelvoDmesgThread::threadLoop, &KelvoDmesgThread::onFirstRef,
                &KelvoDmesgThread::initCheck, &KelvoDmesgThread::handleEvent));
    const size_t first = slotsOf(&IPeltoService::registerNativeClient)[0];
    EXPECT_EQ((std::vector{first + 1, first + 2, first + 3, first + 4, first + 5, first + 6}),
              slotsOf(&IPeltoService::notifyVideoStutter, &IPeltoService::updateSFStateFlag,
                      &IPeltoService::updateTopActivity, &IPeltoService::setEvent,
                      &IPeltoService::setEventToNative, &IPeltoService::setDebugLog));
    EXPECT_EQ(slotsOf(&IPeltoNativeClient::getInterfaceDescriptor)[0] + 1,
              slotsOf(&IPeltoNativeClient::onNativeEvent)[0]);
}

}  // namespace
}  // namespace android
