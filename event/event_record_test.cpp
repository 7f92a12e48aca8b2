#include "event/PeltoEvent.h"
#include "event/phone_integer.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using EventRecordTest = PhoneTest;

TEST_F(EventRecordTest, SplitsTypeInformationAndPairs) {
    const struct {
        const char *text, *type, *info;
        std::vector<std::pair<const char*, const char*>> extras;  // "" is none
    } kCases[] = {
        {"pelto_event_audio_track_create$pid:1234,sessionId:57,flags:0x4,junk,:7,sessionId:58$tail",
         "pelto_event_audio_track_create",
         "pid:1234,sessionId:57,flags:0x4,junk,:7,sessionId:58",
         {{"pid", "1234"}, {"sessionId", "58"}, {"flags", "0x4"}, {"junk", ""}, {"", ""}}},
        {"", "", "", {}},
        {"$$$", "", "", {}},
        {"a", "a", "", {}},
        {"a$", "a", "", {}},
        {"$abc$def", "abc", "def", {}},
        {"$k:v", "k:v", "", {{"k", ""}}},
        {"a$b:1$c:2", "a", "b:1", {{"b", "1"}, {"c", ""}}},
        {"a$b:1:2", "a", "b:1:2", {{"b", "1"}}},
        {"a$::b::c::", "a", "::b::c::", {{"b", "c"}}},
        {"a$k:1,,k:2,k:", "a", "k:1,,k:2,k:", {{"k", "2"}}},
        {"a$ k : v#=1 ,\t:x", "a", " k : v#=1 ,\t:x", {{" k ", " v#=1 "}, {"\t", "x"}}},
        {"a$detectName#HwuiDetect#frameGap#40", "a", "detectName#HwuiDetect#frameGap#40", {}},
    };
    for (const auto& expected : kCases) {
        SCOPED_TRACE(expected.text);
        const sp<PeltoEvent> event = new PeltoEvent(expected.text);
        EXPECT_EQ(expected.type, event->getEventType());
        EXPECT_EQ(expected.info, event->getEventInfo());
        for (const auto& [key, value] : expected.extras)
            EXPECT_EQ(value, event->getStringExtra(key)) << key;
    }
    EXPECT_TRUE(log().empty());
    EXPECT_EQ(",,,", sp<PeltoEvent>(new PeltoEvent("a$,,,"))->getEventInfo());
    EXPECT_TRUE(logged("W PeltoEvent: subInfos is empty!"));
}

TEST_F(EventRecordTest, ReadsIntegersAsA32BitPhoneDoes) {
    const sp<PeltoEvent> event =
        new PeltoEvent("a$n:  42abc,hex:0x4,word:x,neg:-7,big:99999999999,low:-99999999999");
    const std::pair<const char*, int> kExpected[] = {
        {"n", 42}, {"hex", 0},          {"word", 0},    {"neg", -7},
        {"", -1},  {"big", 2147483647}, {"absent", -1}, {"low", -2147483647 - 1},
    };
    for (const auto& [key, value] : kExpected)
        EXPECT_EQ(value, event->getIntFromStringExtra(key, -1)) << key;
    EXPECT_EQ(2147483647, phoneAtoi("123456789012345678901234567890"));
}

}  // namespace
}  // namespace android
