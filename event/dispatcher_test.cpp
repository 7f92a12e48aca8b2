#include <utils/ThreadControl.h>

#include <functional>
#include <future>
#include <thread>

#include "event/PeltoEventDisptch.h"
#include "tests/support/phone_test.h"

namespace android {
namespace {

using namespace std::chrono_literals;
constexpr char kTag[] = "PeltoEventDisptch";

// Hands every event it receives to the test.
class Listener : public EventListener {
  public:
    using Body = std::function<void(const std::string&)>;
    Listener(const char* name, std::vector<std::string> types, Body body) : mBody(std::move(body)) {
        for (const auto& type : types) mEventTypes.add(type);
        mName = name;
        PeltoEventDisptch::getInstance().registerEventListener(this);
    }
    void handleEvent(std::string event) override { mBody(event); }

  private:
    const Body mBody;
};

class DispatcherTest : public PhoneTest {
  protected:
    PeltoEventDisptch& dispatcher() { return PeltoEventDisptch::getInstance(); }
    void set(const std::string& type, const std::string& info) {
        dispatcher().setEvent(String8(type), String8(info));
    }
    sp<Listener> listen(const char* name, std::vector<std::string> types) {
        return new Listener(name, std::move(types), [this, name](const std::string& event) {
            received.push_back(std::string(name) + "<" + event);
        });
    }
    // Waits until everything set so far has been delivered.
    void settle() {
        std::promise<void> done;
        new Listener("settle", {"settle" + std::to_string(++mSettled)},
                     [&](const std::string&) { done.set_value(); });
        set("settle" + std::to_string(mSettled), "");
        ASSERT_EQ(std::future_status::ready, done.get_future().wait_for(kPatience));
    }

    using Texts = std::vector<std::string>;
    Texts received;  // on the handler thread, until settle()

  private:
    int mSettled = 0;
};

TEST_F(DispatcherTest, HandsAnEventToEveryListenerOfItsTypeInOrder) {
    holdClock();  // no listener is slow
    listen("late", {"x", "b"});
    const sp<Listener> twice = listen("twice", {"a", "a"});
    listen("early", {"a"});
    dispatcher().registerEventListener(twice);
    dispatcher().registerEventListener(nullptr);
    dispatcher().unRegisterEventListener([](std::string) {});
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, kTag, "registerEventListener mEventListeners size 5"));
    forgetLog();
    set("a", "");
    set("b", "k:v$ignored");
    for (const char* nobodys : {"A", "aa", "nobody"}) set(nobodys, "info");
    settle();
    EXPECT_EQ((Texts{"twice<a$", "early<a$", "twice<a$", "late<b$k:v$ignored"}), received);
    EXPECT_EQ(1u, log().size()) << "only the line of settling";
}

TEST_F(DispatcherTest, ATextIsDeliveredWholeOrEmpty) {
    const std::string fits(1023 - 2, 'x');
    listen("l", {"a"});
    set("a", fits);
    set("a", fits + "x");
    set("a", std::string(1 << 20, 'x'));
    dispatcher().setDebugLog(true);
    set("a", std::string("1\0002", 3));
    settle();
    dispatcher().setDebugLog(false);
    EXPECT_EQ((Texts{"l<a$" + fits, "l<a$1"}), received);
}

TEST_F(DispatcherTest, TellsTheRoadOfAnEventWhileItsDebugLogIsOn) {
    holdClock();
    dispatcher().setDebugLog(true);
    listen("l", {"a"});
    const sp<Listener> wantsNothing = listen("none", {});
    forgetLog();
    set("a", "k:v");
    settle();
    dispatcher().setDebugLog(false);
    const Texts expected{"setEvent event a$k:v ",
                         "handleMessage what:0 sValue a$k:v",
                         "dispatchEvent event a$k:v",
                         "dispatchEvent eventType a",
                         "dispatchEvent callback name:l event a",
                         "eventTypes is empty!"};
    Texts lines = logLines(kTag);
    // The settling event's own lines may fall in between.
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) {
                                   return line.find("settle") != std::string::npos ||
                                          line.find("size 3") != std::string::npos;
                               }),
                lines.end());
    ASSERT_GE(lines.size(), expected.size());
    lines.resize(expected.size());
    EXPECT_EQ(expected, lines);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, kTag, "debugLog 0"));
    EXPECT_FALSE(logged(ANDROID_LOG_VERBOSE, kTag, "setDebugLog 0"));
}

TEST_F(DispatcherTest, ReportsAListenerThatTakesMoreThanItsBudget) {
    holdClock();
    std::chrono::nanoseconds takes = 500us;
    new Listener("slow", {"a"}, [&](const std::string&) { advance(takes); });
    set("a", "");
    settle();
    for (const Line& line : log()) EXPECT_LT(line.priority, ANDROID_LOG_ERROR) << line.message;
    takes = 500us + 1ns;
    set("a", "");
    settle();
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "dispatchEvent: slow took 501us to handleEvent:a"));
}

TEST_F(DispatcherTest, IgnoresOtherMessagesAndAnEventWithoutListeners) {
    PeltoMessage message = {};
    message.what = 7;
    memset(message.sValue, 'x', sizeof message.sValue);
    dispatcher().handleMessage(message);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "Unknown message: 7"));
    dispatcher().dispatchEvent("a$b");
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, kTag, "EventListener is empty!"));
}

TEST_F(DispatcherTest, ConcurrentFirstUseMakesOne) {
    thread_control::hold("pelto_looper");
    std::vector<std::future<PeltoEventDisptch*>> users;
    for (int i = 0; i < 4; ++i) {
        users.push_back(
            std::async(std::launch::async, [] { return &PeltoEventDisptch::getInstance(); }));
    }
    ASSERT_TRUE(thread_control::awaitHeld("pelto_looper")) << "one is being made";
    thread_control::release("pelto_looper");
    PeltoEventDisptch* const first = users[0].get();
    for (size_t i = 1; i < users.size(); ++i) EXPECT_EQ(first, users[i].get());
}

TEST_F(DispatcherTest, WithoutItsThreadEveryEventIsDropped) {
    thread_control::refuse("pelto_looper");
    listen("l", {"a"});
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag,
                       "cannot start handler thread, error:" + std::to_string(UNKNOWN_ERROR)));
    forgetLog();
    set("a", "");
    EXPECT_TRUE(log().empty());
}

TEST_F(DispatcherTest, SendersOnSeveralThreadsKeepTheirOwnOrder) {
    constexpr int kSenders = 3;
    constexpr int kEach = 500;
    std::vector<int> next(kSenders, 0);
    new Listener("order", {"a"}, [&](const std::string& event) {
        int sender;
        int number;
        ASSERT_EQ(2, sscanf(event.c_str(), "a$%d-%d", &sender, &number));
        EXPECT_EQ(next[static_cast<size_t>(sender)]++, number);
    });
    std::vector<std::thread> senders;
    for (int s = 0; s < kSenders; ++s) {
        senders.emplace_back([&, s] {
            for (int i = 0; i < kEach; ++i) set("a", std::to_string(s) + "-" + std::to_string(i));
        });
    }
    for (auto& sender : senders) sender.join();
    settle();
    EXPECT_EQ(std::vector<int>(kSenders, kEach), next);
}

}  // namespace
}  // namespace android
