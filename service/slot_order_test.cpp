// Callers that were built elsewhere find operations by their place in the table.
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

// The place of a virtual operation in its class's table. ARM marks the offset in the word behind
// it, other machines by making it odd.
template <typename Operation>
ptrdiff_t slotOf(Operation operation) {
    struct {
        ptrdiff_t offset;
        ptrdiff_t adjustment;
    } raw;
    static_assert(sizeof raw == sizeof operation);
    memcpy(&raw, &operation, sizeof raw);
#if defined(__arm__) || defined(__aarch64__)
    const ptrdiff_t offset = raw.offset;
#else
    const ptrdiff_t offset = raw.offset - 1;
#endif
    return offset / static_cast<ptrdiff_t>(sizeof(void*));
}

TEST(SlotOrderTest, AListenersOperationStandsBeforeItsDestructorAHandlersBehind) {
    EXPECT_EQ(0, slotOf(&EventListener::handleEvent));
    EXPECT_EQ(2, slotOf(&PeltoMessageHandler::handleMessage));
    EXPECT_EQ(2, slotOf(&PeltoLooperCallback::handleEvent));
    EXPECT_EQ(2, slotOf(&Thread::run));
    EXPECT_EQ(3, slotOf(&Thread::requestExit));
    EXPECT_EQ(4, slotOf(&Thread::readyToRun));
    EXPECT_EQ(5, slotOf(&KelvoDmesgThread::threadLoop));
    EXPECT_EQ(6, slotOf(&KelvoDmesgThread::onFirstRef));
    EXPECT_EQ(7, slotOf(&KelvoDmesgThread::initCheck));
    EXPECT_EQ(8, slotOf(&KelvoDmesgThread::handleEvent));
}

TEST(SlotOrderTest, TheServicesOperationsStandInTheirOrder) {
    const ptrdiff_t first = slotOf(&IPeltoService::registerNativeClient);
    EXPECT_EQ(first + 1, slotOf(&IPeltoService::notifyVideoStutter));
    EXPECT_EQ(first + 2, slotOf(&IPeltoService::updateSFStateFlag));
    EXPECT_EQ(first + 3, slotOf(&IPeltoService::updateTopActivity));
    EXPECT_EQ(first + 4, slotOf(&IPeltoService::setEvent));
    EXPECT_EQ(first + 5, slotOf(&IPeltoService::setEventToNative));
    EXPECT_EQ(first + 6, slotOf(&IPeltoService::setDebugLog));
    EXPECT_EQ(slotOf(&IPeltoNativeClient::getInterfaceDescriptor) + 1,
              slotOf(&IPeltoNativeClient::onNativeEvent));
}

}  // namespace
}  // namespace android
