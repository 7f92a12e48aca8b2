#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "looper/PeltoLooper.h"
#include "tests/support/phone_test.h"

namespace android {
namespace {

// An event descriptor that can be made ready.
class Bell {
  public:
    ~Bell() { shut(); }
    void ring() {
        const uint64_t one = 1;
        EXPECT_EQ(ssize_t{sizeof one}, write(fd, &one, sizeof one));
    }
    void shut() {
        if (fd >= 0) close(fd);
        fd = -1;
    }
    int fd = eventfd(0, EFD_NONBLOCK);
};

class Callback : public PeltoLooperCallback {
  public:
    explicit Callback(std::function<int(int fd, int events)> body) : mBody(std::move(body)) {}
    int32_t handleEvent(int32_t fd, int32_t events, void*) override { return mBody(fd, events); }

  private:
    const std::function<int(int, int)> mBody;
};

class WatchesTest : public PhoneTest {
  protected:
    int watch(int fd, std::function<int(int, int)> body) {
        return looper->addFd(fd, 0, LOOPER_EVENT_INPUT, new Callback(std::move(body)), nullptr);
    }
    int poll() { return looper->pollOnce(0, nullptr, nullptr, nullptr); }

    const sp<PeltoLooper> looper = new PeltoLooper(true);
    Bell bell;
};

TEST_F(WatchesTest, AWatchWithoutCallbackIsReportedByItsIdentifier) {
    int cookie;
    Bell other;
    ASSERT_EQ(1, looper->addFd(bell.fd, 5, LOOPER_EVENT_INPUT, nullptr, &cookie));
    ASSERT_EQ(1, looper->addFd(other.fd, 6, LOOPER_EVENT_OUTPUT, nullptr, nullptr));
    bell.ring();
    int fd = -1;
    int events = -1;
    void* data = nullptr;
    std::vector<int> idents;
    for (int i = 0; i < 2; ++i) {
        idents.push_back(looper->pollOnce(0, &fd, &events, &data));
        if (idents.back() != 5) continue;
        EXPECT_EQ(bell.fd, fd);
        EXPECT_EQ(LOOPER_EVENT_INPUT, events);
        EXPECT_EQ(&cookie, data);
    }
    EXPECT_EQ(11, idents[0] + idents[1]) << "both, one a call, from one wait";
    EXPECT_EQ(1, looper->removeFd(bell.fd));
    EXPECT_EQ(1, looper->removeFd(other.fd));
    EXPECT_EQ(0, looper->removeFd(other.fd));
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, looper->pollOnce(0, &fd, &events, &data));
    EXPECT_EQ(0, fd);
    EXPECT_EQ(nullptr, data);
}

TEST_F(WatchesTest, RefusesAWatchThatNobodyWouldHearOf) {
    EXPECT_EQ(-1, looper->addFd(bell.fd, -1, LOOPER_EVENT_INPUT, nullptr, nullptr));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "KELVO_Looper",
                       "Invalid attempt to set NULL callback with ident < 0."));
    const sp<PeltoLooper> strict = new PeltoLooper(false);
    EXPECT_EQ(-1, strict->addFd(bell.fd, 5, LOOPER_EVENT_INPUT, nullptr, nullptr));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "KELVO_Looper",
                       "Invalid attempt to set NULL callback but not allowed for this looper."));
    EXPECT_EQ(-1, watch(-1, [](int, int) { return 1; }));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "KELVO_Looper",
                       "Error adding epoll events for fd -1: Bad file descriptor"));
}

TEST_F(WatchesTest, ACallbackRunsAtEachPollUntilItSaysNo) {
    int calls = 0;
    ASSERT_EQ(1, looper->addFd(bell.fd, 7, LOOPER_EVENT_INPUT,
                               new Callback([&](int, int) { return ++calls < 3; }), nullptr));
    bell.ring();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(LOOPER_POLL_TIMEOUT, poll());
    EXPECT_EQ(3, calls);
}

TEST_F(WatchesTest, AWatchAddedAgainReplacesTheOldOne) {
    std::string calls;
    const sp<Callback> first = new Callback([&](int, int) {
        calls += "first ";
        watch(bell.fd, [&](int, int events) {
            calls += std::to_string(events);
            return 0;
        });
        return 0;  // ends the watch that was, not the one just made
    });
    ASSERT_EQ(1, looper->addFd(bell.fd, 0, LOOPER_EVENT_INPUT, first, nullptr));
    bell.ring();
    poll();
    EXPECT_EQ(1, first->getStrongCount()) << "dropped right after its call";
    poll();
    poll();
    EXPECT_EQ("first 1", calls);
}

TEST_F(WatchesTest, ADescriptorClosedBehindTheLoopersBackIsSortedOut) {
    ASSERT_EQ(1, watch(bell.fd, [&](int, int) {
                  bell.shut();
                  return 0;
              }));
    bell.ring();
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_TRUE(logLines("KELVO_Looper").empty());
    EXPECT_EQ(LOOPER_POLL_WAKE, poll()) << "the epoll set is rebuilt";

    Bell reused;
    const int number = reused.fd;
    int calls = 0;
    ASSERT_EQ(1, watch(number, [](int, int) { return 1; }));
    reused.shut();
    Bell again;
    ASSERT_EQ(number, again.fd);
    ASSERT_EQ(1, watch(number, [&](int, int) { return ++calls, 1; }));
    again.ring();
    EXPECT_EQ(LOOPER_POLL_WAKE, poll()) << "the rebuild discards what its wait brought";
    EXPECT_EQ(LOOPER_POLL_CALLBACK, poll());
    EXPECT_EQ(1, calls);

    again.shut();
    EXPECT_EQ(-1, looper->removeFd(number));
    EXPECT_TRUE(logged(
        ANDROID_LOG_ERROR, "KELVO_Looper",
        "Error removing epoll events for fd " + std::to_string(number) + ": Bad file descriptor"));
}

TEST_F(WatchesTest, APollInsideACallbackLeavesNothingUndone) {
    Bell other;
    std::vector<int> calls;
    const auto nested = [&](int fd, int) {
        calls.push_back(fd);
        uint64_t counter;
        EXPECT_EQ(ssize_t{sizeof counter}, read(fd, &counter, sizeof counter));
        poll();
        return 1;
    };
    watch(bell.fd, nested);
    watch(other.fd, nested);
    bell.ring();
    other.ring();
    while (poll() == LOOPER_POLL_CALLBACK) {
    }
    EXPECT_EQ(2u, calls.size());
}

TEST_F(WatchesTest, MessagesGoOutBeforeCallbacks) {
    struct Handler : PeltoMessageHandler {
        explicit Handler(std::string* order) : mOrder(order) {}
        void handleMessage(const PeltoMessage&) override { *mOrder += "message "; }
        std::string* const mOrder;
    };
    std::string order;
    watch(bell.fd, [&](int, int) {
        order += "callback";
        return 0;
    });
    bell.ring();
    looper->sendMessage(new Handler(&order), PeltoMessage{});
    poll();
    EXPECT_EQ("message callback", order);
}

TEST(RequestTest, SequenceNumbersWrapAroundAny) {
    EXPECT_EQ(1, requestSeqAfter(0));
    EXPECT_EQ(INT32_MIN, requestSeqAfter(INT32_MAX));
    EXPECT_EQ(0, requestSeqAfter(-2));
}

}  // namespace
}  // namespace android
