#include <sys/eventfd.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "looper/PeltoLooper.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

// An event descriptor that can be made ready.
class Bell {
  public:
    ~Bell() { shut(); }
    void ring() { EXPECT_EQ(0, eventfd_write(fd, 1)); }
    void shut() {
        if (fd >= 0) close(std::exchange(fd, -1));
    }
    int fd = eventfd(0, EFD_NONBLOCK);
};

// Passes events and messages on to the test.
struct Callback : PeltoLooperCallback, PeltoMessageHandler {
    explicit Callback(std::function<int(int)> toDo) : body(std::move(toDo)) {}
    int32_t handleEvent(int32_t, int32_t events, void*) override { return body(events); }
    void handleMessage(const PeltoMessage& message) override { body(message.what); }
    const std::function<int(int)> body;
};

class WatchesTest : public PhoneTest {
  protected:
    int watch(int fd, std::function<int(int)> body) {
        const sp<PeltoLooperCallback> callback = new Callback(std::move(body));
        return looper->addFd(fd, 0, LOOPER_EVENT_INPUT, callback, nullptr);
    }
    int poll() { return looper->pollOnce(0, nullptr, nullptr, nullptr); }
    bool saidError(const std::string& text) { return logged("E KELVO_Looper: " + text); }

    const sp<PeltoLooper> looper = new PeltoLooper(true);
    Bell bell, other;
};

TEST_F(WatchesTest, AWatchWithoutCallbackIsReportedByItsIdentifier) {
    int cookie, fd = -1, events = -1;
    void* data = nullptr;
    ASSERT_EQ(1, looper->addFd(bell.fd, 5, LOOPER_EVENT_INPUT, nullptr, &cookie));
    ASSERT_EQ(1, looper->addFd(other.fd, 6, LOOPER_EVENT_OUTPUT, nullptr, nullptr));
    bell.ring();
    int idents = 0;
    for (int i = 0; i < 2; ++i) {
        const int ident = looper->pollOnce(0, &fd, &events, &data);
        idents += ident;
        EXPECT_EQ(ident == 5 ? bell.fd : other.fd, fd);
        EXPECT_EQ(ident == 5 ? LOOPER_EVENT_INPUT : LOOPER_EVENT_OUTPUT, events);
        EXPECT_EQ(ident == 5 ? &cookie : nullptr, data);
    }
    EXPECT_EQ(11, idents) << "both, one a call, from one wait";
    EXPECT_EQ(1, looper->removeFd(bell.fd));
    EXPECT_EQ(1, looper->removeFd(other.fd));
    EXPECT_EQ(0, looper->removeFd(other.fd));
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, looper->pollOnce(0, &fd, &events, &data));
    EXPECT_EQ(0, fd + events);
    EXPECT_EQ(nullptr, data);
}

TEST_F(WatchesTest, RefusesAWatchThatNobodyWouldHearOf) {
    EXPECT_EQ(-1, looper->addFd(bell.fd, -1, LOOPER_EVENT_INPUT, nullptr, nullptr));
    EXPECT_TRUE(saidError("Invalid attempt to set NULL callback with ident < 0."));
    const sp<PeltoLooper> strict = new PeltoLooper(false);
    EXPECT_EQ(-1, strict->addFd(bell.fd, 5, LOOPER_EVENT_INPUT, nullptr, nullptr));
    EXPECT_TRUE(saidError("Invalid attempt to set NULL callback but not allowed for this looper."));
    EXPECT_EQ(-1, watch(-1, [](int) { return 1; }));
    EXPECT_TRUE(saidError("Error adding epoll events for fd -1: Bad file descriptor"));
}

TEST_F(WatchesTest, ACallbackRunsAtEachPollUntilItSaysNoOrTheTimeIsUp) {
    holdClock();
    int calls = 0;
    std::function<int()> step = [&] {
        advance(std::chrono::milliseconds(60));
        return ++calls % 5;
    };
    const auto call = [](int, int, void* data) { return (*static_cast<decltype(step)*>(data))(); };
    ASSERT_EQ(1, looper->addFd(bell.fd, 7, LOOPER_EVENT_INPUT, call, &step));
    bell.ring();
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, looper->pollAll(200, nullptr, nullptr, nullptr));
    EXPECT_EQ(4, calls) << "at 60, 120, 180 and 240 ms";
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, looper->pollAll(0, nullptr, nullptr, nullptr));
    EXPECT_EQ(5, calls);
}

TEST_F(WatchesTest, AWatchAddedAgainReplacesTheOldOne) {
    std::string calls;
    const sp<Callback> first = new Callback([&](int) {
        calls += "first ";
        watch(bell.fd, [&](int events) { return calls += std::to_string(events), 0; });
        return 0;  // ends the old watch, not the one just made
    });
    const sp<PeltoLooperCallback> callback = first;
    ASSERT_EQ(1, looper->addFd(bell.fd, 0, LOOPER_EVENT_INPUT, callback, nullptr));
    bell.ring();
    poll();
    EXPECT_EQ(2, first->getStrongCount()) << "dropped right after its call";
    poll();
    poll();
    EXPECT_EQ("first 1", calls);
}

TEST_F(WatchesTest, ADescriptorClosedBehindTheLoopersBackIsSortedOut) {
    ASSERT_EQ(1, watch(other.fd, [&](int) { return other.shut(), 0; }));
    other.ring();
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_TRUE(logLines("KELVO_Looper").empty());
    EXPECT_EQ(LOOPER_POLL_WAKE, poll()) << "the epoll set is rebuilt";

    const int number = bell.fd;
    int calls = 0;
    ASSERT_EQ(1, watch(number, [](int) { return 1; }));
    bell.shut();
    ASSERT_EQ(number, bell.fd = eventfd(0, EFD_NONBLOCK)) << "its number is used again";
    ASSERT_EQ(1, watch(number, [&](int) { return ++calls, 1; }));
    bell.ring();
    EXPECT_EQ(LOOPER_POLL_WAKE, poll()) << "the rebuild discards what its wait brought";
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(1, calls);

    other.fd = eventfd(1, EFD_NONBLOCK);
    bell.shut();
    const std::string events = " epoll events for fd " + std::to_string(number);
    EXPECT_EQ(-1, watch(number, [](int) { return 1; }));
    EXPECT_TRUE(saidError("Error modifying" + events + ": Bad file descriptor"));
    watch(other.fd, [&](int) { return other.shut(), 0; });
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(LOOPER_POLL_WAKE, poll());
    EXPECT_TRUE(
        saidError("Error adding" + events + " while rebuilding epoll set: Bad file descriptor"));
    EXPECT_EQ(-1, looper->removeFd(number));
    EXPECT_TRUE(saidError("Error removing" + events + ": Bad file descriptor"));
}

TEST_F(WatchesTest, APollInsideACallbackLeavesNothingUndone) {
    int calls = 0;
    for (Bell* const each : {&bell, &other}) {
        watch(each->fd, [&, each](int) {
            uint64_t counter;
            EXPECT_EQ(0, eventfd_read(each->fd, &counter));
            return poll(), ++calls;
        });
        each->ring();
    }
    while (poll() == LOOPER_POLL_CALLBACK) {
    }
    EXPECT_EQ(2, calls);
}

TEST_F(WatchesTest, MessagesGoOutBeforeCallbacksWhichRunOnceMoreWhenRemovedMeanwhile) {
    std::string order;
    watch(bell.fd, [&](int) { return order += "callback", 1; });
    bell.ring();
    const auto remove = [&](int) {
        std::thread([&] { EXPECT_EQ(1, looper->removeFd(bell.fd)); }).join();
        return order += "message ", 0;
    };
    looper->sendMessage(new Callback(remove), PeltoMessage{});
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll());
    EXPECT_EQ("message callback", order);
}

TEST(RequestTest, SequenceNumbersWrapAroundAny) {
    EXPECT_EQ(1, requestSeqAfter(0));
    EXPECT_EQ(INT32_MIN, requestSeqAfter(INT32_MAX));
    EXPECT_EQ(0, requestSeqAfter(-2));
}

}  // namespace
}  // namespace android
