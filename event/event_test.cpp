#include <utils/ThreadStartControl.h>

#include <functional>

#include "bench/allocations.h"
#include "event/PeltoEvent.h"
#include "event/PeltoEventDisptch.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;
constexpr char kTag[] = "PeltoEventDisptch";

using EventRecordTest = PhoneTest;

TEST_F(EventRecordTest, SplitsTypeInformationAndPairs) {
    const std::string info =
        "k:1,,k:2,k:,:7,h:0x4,::b::  42c:d, x : y#, flags,w:word,n:-7,"
        "max:99999999999999999999,min:-9999999999";
    const sp<PeltoEvent> event = new PeltoEvent("$$a type$$" + info + "$tail:1");
    EXPECT_EQ("a type", event->getEventType());
    EXPECT_EQ(info, event->getEventInfo());
    std::string extras;
    for (const char* key :
         {"k", "b", " x ", "7", " flags", "", "h", "w", "tail", "n", "max", "min"}) {
        extras += event->getStringExtra(key) + "=" +
                  std::to_string(event->getIntFromStringExtra(key, 1)) + ",";
    }
    EXPECT_EQ(
        "2=2,  42c=42, y#=0,=1,=1,=1,0x4=0,word=0,=1,-7=-7,99999999999999999999=2147483647,"
        "-9999999999=-2147483648,",
        extras);
    for (const std::string text : {"", "$$$", "a", "a$"}) {
        const sp<PeltoEvent> bare = new PeltoEvent(text);
        EXPECT_EQ(text[0] == 'a' ? "a" : "", bare->getEventType()) << text;
        EXPECT_EQ("", bare->getEventInfo());
    }
    EXPECT_TRUE(log().empty());
    EXPECT_EQ(",,,", sp<PeltoEvent>(new PeltoEvent("a$,,,"))->getEventInfo());
    EXPECT_EQ("W subInfos is empty!\n", said("PeltoEvent"));
}

// Logs every event it receives, after its own name, under the tag "listener".
struct Listener : EventListener {
    Listener(const char* name, const Texts& types, std::function<void()> then = {}) : mThen(then) {
        for (const auto& type : types) mEventTypes.add(type);
        mName = name;
        PeltoEventDisptch::getInstance().registerEventListener(this);
    }
    void handleEvent(std::string event) override {
        __android_log_write(ANDROID_LOG_INFO, "listener", (mName + event).c_str());
        if (mThen) mThen();
    }
    const std::function<void()> mThen;
};

class DispatcherTest : public PhoneTest {
  protected:
    PeltoEventDisptch& dispatcher() { return PeltoEventDisptch::getInstance(); }
    void set(const std::string& type, const std::string& info) {
        dispatcher().setEvent(String8(type), String8(info));
    }
};

TEST_F(DispatcherTest, HandsEventsWholeOrEmptyToListenersInOrder) {
    holdClock();  // no listener is slow
    new Listener("late:", {"x", "b", "end"});
    const sp<Listener> twice = new Listener("twice:", {"a", "a"});
    new Listener("early:", {"a"});
    dispatcher().registerEventListener(twice);
    dispatcher().registerEventListener(nullptr);
    dispatcher().unRegisterEventListener([](std::string) {});
    const String8 unwanted("a type that nobody wants"), text("not short enough to be in line");
    const uint64_t before = bench::allocationsOfThread();
    for (int i = 0; i < 1000; ++i) dispatcher().setEvent(unwanted, text);
    EXPECT_LT(bench::allocationsOfThread() - before, 50u) << "the queue grows by 32 messages";
    forgetLog();
    for (const char* type : {"a", "A", "aa", "nobody", ""}) set(type, "a");
    const std::string fits(1023 - 2, 'x');
    for (const std::string& info : {fits, fits + "x", std::string(1 << 20, 'x')}) set("b", info);
    set("end", "k:v$ignored");
    ASSERT_TRUE(waitLogged("I listener: late:end$k:v$ignored"));
    EXPECT_EQ((Texts{"twice:a$a", "early:a$a", "twice:a$a", "twice:$a", "early:$a", "twice:$a",
                     "late:b$" + fits, "late:end$k:v$ignored"}),
              logLines("listener"));
    EXPECT_EQ("", said(kTag));
}

TEST_F(DispatcherTest, TellsOfASlowListenerAndWithTheDebugLogOfTheRoadOfAnEvent) {
    holdClock();
    std::chrono::nanoseconds takes = 500us;
    new Listener("l", {"a"}, [&] { advance(std::exchange(takes, takes + 1ns)); });
    new Listener("none", {});
    forgetLog();
    set("a", "");
    ASSERT_TRUE(waitLogged("W PeltoEventDisptch: eventTypes is empty!"));
    dispatcher().setDebugLog(true);
    set("a", std::string("k:v\0tail", 8));
    ASSERT_TRUE(waitLogged("W PeltoEventDisptch: eventTypes is empty!", 2));
    dispatcher().setDebugLog(false);
    EXPECT_EQ(
        "W eventTypes is empty!\nD debugLog 1\nV setDebugLog 1\nV setEvent event a$k:v \n"
        "V handleMessage what:0 sValue a$k:v\nV dispatchEvent event a$k:v\n"
        "V dispatchEvent eventType a\nV dispatchEvent callback name:l event a\n"
        "E dispatchEvent: l took 501us to handleEvent:a\nW eventTypes is empty!\nD debugLog 0\n",
        said(kTag));
}

TEST_F(DispatcherTest, IgnoresWhatItCannotDeliver) {
    thread_control::refuse("pelto_looper");
    set("a", "dropped");
    PeltoMessage message{7, ""};
    memset(message.sValue, 'x', sizeof message.sValue);
    dispatcher().handleMessage(message);
    dispatcher().dispatchEvent("a$b");
    EXPECT_EQ(
        "E cannot start handler thread, error:-2147483648\n"
        "E Unknown message: 7\nW EventListener is empty!\n",
        said(kTag));
}

}  // namespace
}  // namespace android
