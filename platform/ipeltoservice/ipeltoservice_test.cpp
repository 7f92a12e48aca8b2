#include <gtest/gtest.h>
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoEventUploadUtils.h>
#include <ipeltoservice/PeltoServiceCalls.h>

#include <thread>

#include "platform/binder/testing/binder_fixture.h"
#include "platform/binder/testing/peer.h"

namespace android::binder_test {
namespace {

// Notes every operation as one line.
class NotingService : public BnPeltoService {
  public:
    status_t registerNativeClient(const sp<IPeltoNativeClient>& client) override {
        const bool again = client == mClient;
        mClient = client;
        note(client == nullptr ? "client none" : again ? "client again" : "client");
        return 17;
    }
    void notifyVideoStutter(const String8& detector, int frameGap) override {
        note("stutter " + text(detector) + " " + std::to_string(frameGap));
    }
    void updateSFStateFlag(bool state) override { note("flag " + std::to_string(state)); }
    void updateTopActivity(int64_t millis) override { note("top " + std::to_string(millis)); }
    void setEvent(const String8& type, const String8& info) override {
        note("event " + text(type) + "$" + text(info));
        if (mClient != nullptr) mClient->onNativeEvent(type.c_str(), info.c_str());
    }
    void setEventToNative(const String8& type, const String8& info) override {
        note("native " + text(type) + "$" + text(info));
    }
    void setDebugLog(bool on) override { note("debug " + std::to_string(on)); }

    std::vector<std::string> notes(size_t count) {
        std::unique_lock<std::mutex> lock(mMutex);
        mNoted.wait_for(lock, kPatience, [&] { return mNotes.size() >= count; });
        return mNotes;
    }

  private:
    static std::string text(const String8& text) { return {text.c_str(), text.size()}; }
    void note(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mNotes.push_back(line);
        mNoted.notify_all();
    }

    sp<IPeltoNativeClient> mClient;  // by one test thread's waiting calls only
    std::mutex mMutex;
    std::condition_variable mNoted;
    std::vector<std::string> mNotes;
};

class NotingClient : public BnPeltoNativeClient {
  public:
    status_t onNativeEvent(const char* type, const char* info) override {
        event = std::string(type) + "$" + info;
        told.open();
        return OK;
    }
    std::string event;
    Latch told;
};

class PeltoInterfaceTest : public PhoneTest {
  protected:
    void publishAndServe() {
        ASSERT_EQ(OK, defaultServiceManager()->addService(String16(kPeltoServiceName), mService));
        ProcessState::self()->startThreadPool();
        mRemote = transport::Process::get().services().connect(kPeltoServiceName);
        ASSERT_NE(nullptr, mRemote);
    }

    const sp<NotingService> mService = sp<NotingService>::make();
    sp<IBinder> mRemote;
};

TEST_F(PeltoInterfaceTest, theSevenOperationsArriveInSlotOrder) {
    publishAndServe();
    const sp<IPeltoService> service = interface_cast<IPeltoService>(mRemote);
    ASSERT_NE(mService, IInterface::asBinder(service));
    EXPECT_EQ(17, service->registerNativeClient(nullptr));
    service->notifyVideoStutter(String8("detector"), -3);
    service->updateSFStateFlag(true);
    service->updateTopActivity(INT64_MIN);
    service->setEvent(String8("type"), String8("key:\xc3\xa9"));
    service->setEventToNative(String8(), String8("info"));
    service->setDebugLog(false);
    const std::vector<std::string> expected = {"client none",
                                               "stutter detector -3",
                                               "flag 1",
                                               "top -9223372036854775808",
                                               "event type$key:\xc3\xa9",
                                               "native $info",
                                               "debug 0"};
    EXPECT_EQ(expected, mService->notes(expected.size()));

    // The same by code, each operation fed with what would fit every one of them.
    for (uint32_t code = 1; code <= 7; ++code) {
        Parcel data, reply;
        data.writeInterfaceToken(IPeltoService::descriptor);
        data.writeInt64(0);
        data.writeInt64(0);
        EXPECT_EQ(code == 1 ? BAD_TYPE : OK, mRemote->transact(code, data, &reply)) << code;
    }
    const std::vector<std::string> byCode = mService->notes(expected.size() + 6);
    for (size_t i = 1; i < expected.size(); ++i) {
        const std::string word = expected[i].substr(0, expected[i].find(' '));
        EXPECT_EQ(0u, byCode[expected.size() + i - 1].rfind(word, 0)) << word;
    }
}

TEST_F(PeltoInterfaceTest, malformedCallsReachNoOperation) {
    publishAndServe();
    Parcel data, reply;
    EXPECT_EQ(UNKNOWN_TRANSACTION, mRemote->transact(8, data, &reply));
    EXPECT_EQ(UNKNOWN_TRANSACTION, mRemote->transact(0, data, &reply));
    for (uint32_t code = 1; code <= 7; ++code) {
        EXPECT_EQ(PERMISSION_DENIED, mRemote->transact(code, Parcel(), &reply));
        Parcel other;
        other.writeInterfaceToken(IPeltoNativeClient::descriptor);
        EXPECT_EQ(PERMISSION_DENIED, mRemote->transact(code, other, &reply));
    }
    data.writeInterfaceToken(IPeltoService::descriptor);
    data.writeString8(String8("type"));
    data.writeString8(String8("some info"));
    // Every cut of a setEvent.
    for (size_t size = 0; size < data.dataSize(); size += 4) {
        Parcel cut;
        cut.setData(data.data(), size);
        EXPECT_NE(OK, mRemote->transact(IPeltoService::SET_EVENT, cut, &reply)) << size;
    }
    Parcel negative;
    negative.writeInterfaceToken(IPeltoService::descriptor);
    negative.writeInt32(-1);
    EXPECT_EQ(BAD_VALUE, mRemote->transact(IPeltoService::NOTIFY_VIDEO_STUTTER, negative, &reply));
    EXPECT_TRUE(mService->notes(0).empty());
}

TEST_F(PeltoInterfaceTest, aNativeClientIsToldAndKnownAgain) {
    publishAndServe();
    const sp<NotingClient> client = sp<NotingClient>::make();
    PeltoServiceCalls calls(mRemote.get());
    EXPECT_EQ(17, calls.registerNativeClient(client));
    EXPECT_EQ(17, calls.registerNativeClient(client));
    EXPECT_EQ(OK, calls.setEvent(String8("type"), String8("info")));
    ASSERT_TRUE(client->told.wait());
    EXPECT_EQ("type$info", client->event);
    EXPECT_EQ((std::vector<std::string>{"client", "client again", "event type$info"}),
              mService->notes(3));

    Parcel unterminated, reply;
    unterminated.writeInterfaceToken(IPeltoNativeClient::descriptor);
    unterminated.writeCString("type");
    unterminated.write("info", 4);
    EXPECT_EQ(BAD_VALUE,
              client->transact(IPeltoNativeClient::ON_NATIVE_EVENT, unterminated, &reply));
}

TEST_F(PeltoInterfaceTest, uploadsFindTheServiceThatCameBack) {
    PeltoEventUploadUtils& upload = PeltoEventUploadUtils::getInstance();
    Peer before(phone().folder(), {"serve", kPeltoServiceName});
    ASSERT_EQ("up", before.hear());
    upload.setEvent(String8("type"), String8("to the first"));
    before.end(SIGKILL);
    publishAndServe();
    upload.setEvent(String8("type"), String8("to the next"));
    EXPECT_EQ(std::vector<std::string>{"event type$to the next"}, mService->notes(1));
    EXPECT_TRUE(logLines("PeltoEventUploadUtils").empty());
}

TEST_F(PeltoInterfaceTest, uploadsArriveAsAClientsCallsDo) {
    PeltoEventUploadUtils& upload = PeltoEventUploadUtils::getInstance();
    upload.setEvent(String8("early"), String8());
    EXPECT_EQ(1u, logLines("PeltoEventUploadUtils").size());
    ASSERT_EQ(OK, defaultServiceManager()->addService(String16(kPeltoServiceName), mService));
    // No thread executes calls yet: sending does not wait for one.
    constexpr int kEvents = 500;
    for (int i = 0; i < kEvents; ++i) upload.setEvent(String8("type"), String8(std::to_string(i)));
    ProcessState::self()->startThreadPool();
    const std::vector<std::string> notes = mService->notes(kEvents);
    ASSERT_EQ(static_cast<size_t>(kEvents), notes.size());
    for (int i = 0; i < kEvents; ++i) {
        EXPECT_EQ("event type$" + std::to_string(i), notes[static_cast<size_t>(i)]);
    }
    upload.setEvent(String8("huge"), String8(std::string(1 << 20, 'x')));
    EXPECT_EQ(2u, logLines("PeltoEventUploadUtils").size());
}

}  // namespace
}  // namespace android::binder_test
