#include <utils/ThreadStartControl.h>

#include <functional>
#include <future>

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
    const std::pair<const char*, const char*> kTexts[] = {
        {"k", "2"},     {"b", "  42c"}, {" x ", " y#"}, {"7", ""},
        {" flags", ""}, {"tail", ""},   {"", ""},
    };
    for (const auto& [key, text] : kTexts) EXPECT_EQ(text, event->getStringExtra(key)) << key;
    const std::pair<const char*, int> kNumbers[] = {
        {"b", 42},   {"h", 0}, {"w", 0},           {"n", -7},
        {"tail", 1}, {"", 1},  {"max", INT32_MAX}, {"min", INT32_MIN},
    };
    for (const auto& [key, number] : kNumbers)
        EXPECT_EQ(number, event->getIntFromStringExtra(key, 1)) << key;
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

TEST_F(DispatcherTest, ConcurrentFirstUsesMakeOneThatHandsEventsWholeOrEmptyToListenersInOrder) {
    holdClock();  // no listener is slow
    thread_control::hold("pelto_looper");
    std::future<PeltoEventDisptch*> users[4];
    for (auto& user : users) user = std::async(std::launch::async, [&] { return &dispatcher(); });
    ASSERT_TRUE(thread_control::awaitHeld("pelto_looper")) << "one is being made";
    thread_control::release("pelto_looper");
    for (auto& user : users) EXPECT_EQ(user.get(), &dispatcher());
    new Listener("late:", {"x", "b", "end"});
    const sp<Listener> twice = new Listener("twice:", {"a", "a"});
    new Listener("early:", {"a"});
    dispatcher().registerEventListener(twice);
    dispatcher().registerEventListener(nullptr);
    dispatcher().unRegisterEventListener([](std::string) {});
    EXPECT_TRUE(logged("D PeltoEventDisptch: registerEventListener mEventListeners size 5"));
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
    EXPECT_EQ((Texts{"la$", "la$k:v"}), logLines("listener"));
    EXPECT_TRUE(logged("E PeltoEventDisptch: dispatchEvent: l took 501us to handleEvent:a"));
    EXPECT_EQ((Texts{"eventTypes is empty!", "debugLog 1", "setDebugLog 1", "setEvent event a$k:v ",
                     "handleMessage what:0 sValue a$k:v", "dispatchEvent event a$k:v",
                     "dispatchEvent eventType a", "dispatchEvent callback name:l event a",
                     "dispatchEvent: l took 501us to handleEvent:a", "eventTypes is empty!",
                     "debugLog 0"}),
              logLines(kTag));
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
