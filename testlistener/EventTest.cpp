#include "testlistener/EventTest.h"

#include <android/log.h>
#include <ipeltoservice/PeltoEventUploadUtils.h>
#include <utils/String8.h>

#include <utility>

#include "event/PeltoEvent.h"
#include "event/PeltoEventDisptch.h"

namespace android {

namespace {

constexpr char kTag[] = "EventTest";
constexpr char kAudioTrackCreate[] = "pelto_event_audio_track_create";
constexpr char kForTest[] = "pelto_event_for_test";
constexpr char kForTestToNative[] = "pelto_event_for_test_to_native";
constexpr char kReplyType[] = "pelto_event_for_test_from_native";
// The misspellings are part of the test protocol.
constexpr char kReplyInfo[] =
    "value0:4,value1:5,string0:evetn_frome_native,string1:evetn_frome_native";

// The fields of both test events.
struct TestFields {
    explicit TestFields(PeltoEvent& event)
        : value0(event.getIntFromStringExtra("value0", -1)),
          value1(event.getIntFromStringExtra("value1", -1)),
          string0(event.getStringExtra("string0")),
          string1(event.getStringExtra("string1")),
          info(event.getEventInfo()) {}

    const int value0;
    const int value1;
    const std::string string0;
    const std::string string1;
    const std::string info;
};

}  // namespace

EventTest::EventTest() {
    registerEventLister();
}

void EventTest::registerEventLister() {
    mEventTypes.add(kAudioTrackCreate);
    mEventTypes.add(kForTest);
    mEventTypes.add(kForTestToNative);
    mName = "EventTest";
    PeltoEventDisptch::getInstance().registerEventListener(this);
}

void EventTest::handleEvent(std::string event) {
    const sp<PeltoEvent> record = new PeltoEvent(std::move(event));
    const std::string type = record->getEventType();
    if (type == kForTest) {
        handleForTest(*record);
    } else if (type == kAudioTrackCreate) {
        handleAudioTrackCreate(*record);
    } else if (type == kForTestToNative) {
        handleForTestToNative(*record);
    }
}

void EventTest::handleForTest(PeltoEvent& event) {
    const TestFields fields(event);
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "handleEvent:pelto_event_for_test eventInfo %s",
                        fields.info.c_str());
    __android_log_print(
        ANDROID_LOG_DEBUG, kTag,
        "handleEvent:pelto_event_for_test value0:%d value1:%d string0:%s string1:%s", fields.value0,
        fields.value1, fields.string0.c_str(), fields.string1.c_str());
}

void EventTest::handleAudioTrackCreate(PeltoEvent& event) {
    const int pid = event.getIntFromStringExtra("pid", -1);
    const int sessionId = event.getIntFromStringExtra("sessionId", -1);
    const int streamType = event.getIntFromStringExtra("streamType", -1);
    const int flags = event.getIntFromStringExtra("flags", -1);
    const int deviceTypes = event.getIntFromStringExtra("deviceTypes", -1);
    const int hasFastMixer = event.getIntFromStringExtra("hasFastMixer", -1);
    __android_log_print(ANDROID_LOG_DEBUG, kTag,
                        "handleEvent pelto_event_audio_track_create "
                        "pid:%d,sessionId:%d,streamType:%d,flags:%d,deviceTypes:%d,hasFastMixer:%d",
                        pid, sessionId, streamType, flags, deviceTypes, hasFastMixer);
}

void EventTest::handleForTestToNative(PeltoEvent& event) {
    const TestFields fields(event);
    __android_log_print(ANDROID_LOG_DEBUG, kTag,
                        "handleEvent:PELTO_EVENT_FOR_TEST_TO_NATIVE eventInfo %s",
                        fields.info.c_str());
    __android_log_print(
        ANDROID_LOG_DEBUG, kTag,
        "handleEvent:PELTO_EVENT_FOR_TEST_TO_NATIVE value0:%d value1:%d string0:%s string1:%s",
        fields.value0, fields.value1, fields.string0.c_str(), fields.string1.c_str());
    if (fields.value0 == 2 && fields.value1 == 3 && fields.string0 == "event_to_native") reply();
}

void EventTest::reply() {
    PeltoEventUploadUtils::getInstance().setEvent(String8(kReplyType), String8(kReplyInfo));
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "pelto_event_test event:%s,info:%s", kReplyType,
                        kReplyInfo);
}

}  // namespace android
