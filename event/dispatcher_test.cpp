#include <utils/ThreadStartControl.h>

#include <functional>
#include <future>

#include "event/PeltoEventDisptch.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;
constexpr char kTag[] = "PeltoEventDisptch";

// Logs every event it receives, after its own name, under the tag "listener".
class Listener : public EventListener {
  public:
    Listener(const char* name, const Texts& types, std::function<void()> then = {}) : mThen(then) {
        for (const auto& type : types) mEventTypes.add(type);
        mName = name;
        PeltoEventDisptch::getInstance().registerEventListener(this);
    }
    void handleEvent(std::string event) override {
        __android_log_write(ANDROID_LOG_INFO, "listener", (mName + event).c_str());
        if (mThen) mThen();
    }

  private:
    const std::function<void()> mThen;
};

class DispatcherTest : public PhoneTest {
  protected:
    PeltoEventDisptch& dispatcher() { return PeltoEventDisptch::getInstance(); }
    void set(const std::string& type, const std::string& info) {
        dispatcher().setEvent(String8(type), String8(info));
    }
};

TEST_F(DispatcherTest, HandsAnEventWholeOrEmptyToEveryListenerOfItsTypeInOrder) {
    holdClock();  // no listener is slow
    new Listener("late:", {"x", "b", "end"});
    const sp<Listener> twice = new Listener("twice:", {"a", "a"});
    new Listener("early:", {"a"});
    dispatcher().registerEventListener(twice);
    dispatcher().registerEventListener(nullptr);
    dispatcher().unRegisterEventListener([](std::string) {});
    EXPECT_TRUE(logged("D PeltoEventDisptch: registerEventListener mEventListeners size 5"));
    forgetLog();
    const std::string fits(1023 - 2, 'x');
    const std::pair<const char*, std::string> kEvents[] = {
        {"a", ""},    {"b", "k:v$ignored"}, {"A", "info"},
        {"aa", ""},   {"nobody", ""},       {"", "a"},
        {"b", fits},  {"b", fits + "x"},    {"b", std::string(1 << 20, 'x')},
        {"end", "1"},
    };
    for (const auto& [type, info] : kEvents) set(type, info);
    ASSERT_TRUE(waitLogged("I listener: late:end$1"));
    EXPECT_EQ((Texts{"twice:a$", "early:a$", "twice:a$", "late:b$k:v$ignored", "twice:$a",
                     "early:$a", "twice:$a", "late:b$" + fits, "late:end$1"}),
              logLines("listener"));
    EXPECT_EQ(Texts{}, logLines(kTag));
}

TEST_F(DispatcherTest, TellsTheRoadOfAnEventWhileItsDebugLogIsOn) {
    holdClock();
    new Listener("l", {"a"});
    new Listener("none", {});
    forgetLog();
    dispatcher().setDebugLog(true);
    set("a", std::string("k:v\0tail", 8));
    ASSERT_TRUE(waitLogged("W PeltoEventDisptch: eventTypes is empty!"));
    dispatcher().setDebugLog(false);
    EXPECT_EQ((Texts{"debugLog 1", "setDebugLog 1", "setEvent event a$k:v ",
                     "handleMessage what:0 sValue a$k:v", "dispatchEvent event a$k:v",
                     "dispatchEvent eventType a", "dispatchEvent callback name:l event a",
                     "eventTypes is empty!", "debugLog 0"}),
              logLines(kTag));
    EXPECT_TRUE(logged("I listener: la$k:v"));
}

TEST_F(DispatcherTest, ReportsAListenerThatTakesMoreThanItsBudget) {
    holdClock();
    std::chrono::nanoseconds takes = 500us;
    new Listener("slow", {"a"}, [&] { advance(std::exchange(takes, takes + 1ns)); });
    new Listener("end", {"a"});
    set("a", "");
    ASSERT_TRUE(waitLogged("I listener: enda$"));
    for (const Line& line : log()) EXPECT_LT(line.priority, ANDROID_LOG_ERROR) << line.message;
    set("a", "");
    EXPECT_TRUE(waitLogged("E PeltoEventDisptch: dispatchEvent: slow took 501us to handleEvent:a"));
}

TEST_F(DispatcherTest, IgnoresOtherMessagesAndAnEventWithoutListeners) {
    PeltoMessage message = {};
    message.what = 7;
    memset(message.sValue, 'x', sizeof message.sValue);
    dispatcher().handleMessage(message);
    dispatcher().dispatchEvent("a$b");
    EXPECT_EQ((Texts{"Unknown message: 7", "EventListener is empty!"}), logLines(kTag));
    EXPECT_EQ(ANDROID_LOG_ERROR, log()[0].priority);
    EXPECT_EQ(ANDROID_LOG_WARN, log()[1].priority);
}

TEST_F(DispatcherTest, ConcurrentFirstUseMakesOne) {
    thread_control::hold("pelto_looper");
    std::vector<std::future<PeltoEventDisptch*>> users(4);
    for (auto& user : users) {
        user = std::async(std::launch::async, [] { return &PeltoEventDisptch::getInstance(); });
    }
    ASSERT_TRUE(thread_control::awaitHeld("pelto_looper")) << "one is being made";
    thread_control::release("pelto_looper");
    for (auto& user : users) EXPECT_EQ(user.get(), &PeltoEventDisptch::getInstance());
}

}  // namespace
}  // namespace android
