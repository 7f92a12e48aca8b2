#include <gtest/gtest.h>
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoEventUploadUtils.h>
#include <ipeltoservice/PeltoServiceCalls.h>

#include "platform/binder/testing/binder_fixture.h"

namespace android::binder_test {
namespace {

using Notes = std::vector<std::string>;

// Notes every operation as one line.
class NotingService : public BnPeltoService {
  public:
    status_t registerNativeClient(const sp<IPeltoNativeClient>& client) override {
        note(client == nullptr ? "client none" : client == mClient ? "client again" : "client");
        mClient = client;
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

    // Waits for `count` notes and takes them.
    Notes notes(size_t count) {
        std::unique_lock<std::mutex> lock(mMutex);
        mNoted.wait_for(lock, kTimeout, [&] { return mNotes.size() >= count; });
        return std::exchange(mNotes, {});
    }

  private:
    static std::string text(const String8& text) { return {text.c_str(), text.size()}; }
    void note(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mNotes.push_back(line);
        mNoted.notify_all();
    }

    sp<IPeltoNativeClient> mClient;  // used by the waiting calls of one test thread only
    std::mutex mMutex;
    std::condition_variable mNoted;
    Notes mNotes;
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
    EXPECT_EQ(17, service->registerNativeClient(nullptr));
    service->notifyVideoStutter(String8("detector"), -3);
    service->updateSFStateFlag(true);
    service->updateTopActivity(INT64_MIN);
    service->setEvent(String8("type"), String8("key:\xc3\xa9"));
    service->setEventToNative(String8(), String8("info"));
    service->setDebugLog(false);
    EXPECT_EQ((Notes{"client none", "stutter detector -3", "flag 1", "top -9223372036854775808",
                     "event type$key:\xc3\xa9", "native $info", "debug 0"}),
              mService->notes(7));

    // By code: every operation accepts the same arguments.
    for (uint32_t code = 1; code <= 7; ++code) {
        Parcel data, reply;
        data.writeInterfaceToken(IPeltoService::descriptor);
        data.writeInt64(0);
        data.writeInt64(0);
        EXPECT_EQ(code == 1 ? BAD_TYPE : OK, mRemote->transact(code, data, &reply)) << code;
    }
    EXPECT_EQ((Notes{"stutter  0", "flag 0", "top 0", "event $", "native $", "debug 0"}),
              mService->notes(6));
}

TEST_F(PeltoInterfaceTest, aCallCutShortReachesNoOperation) {
    publishAndServe();
    Parcel data, negative, reply;
    data.writeInterfaceToken(IPeltoService::descriptor);
    data.writeString8(String8("type"));
    EXPECT_EQ(NOT_ENOUGH_DATA,
              mRemote->transact(IPeltoService::NOTIFY_VIDEO_STUTTER, data, &reply));
    data.writeString8(String8("some info"));
    for (size_t size = 0; size < data.dataSize(); size += 4) {
        Parcel cut;
        cut.setData(data.data(), size);
        EXPECT_NE(OK, mRemote->transact(IPeltoService::SET_EVENT, cut, &reply)) << size;
    }
    negative.writeInterfaceToken(IPeltoService::descriptor);
    negative.writeInt32(-1);
    EXPECT_EQ(BAD_VALUE, mRemote->transact(IPeltoService::NOTIFY_VIDEO_STUTTER, negative, &reply));
    EXPECT_EQ(OK,
              mRemote->transact(IPeltoService::SET_EVENT, negative, nullptr, IBinder::FLAG_ONEWAY));
    EXPECT_TRUE(waitLogged("W Binder: one-way call 5 of process " + std::to_string(getpid()) +
                           " was refused with " + std::to_string(BAD_VALUE)));
    EXPECT_EQ(Notes{}, mService->notes(0));
}

TEST_F(PeltoInterfaceTest, aNativeClientIsToldAndKnownAgain) {
    publishAndServe();
    const sp<NotingClient> client = sp<NotingClient>::make();
    PeltoServiceCalls calls(mRemote.get());
    EXPECT_EQ(17, calls.registerNativeClient(client));
    EXPECT_EQ(17, calls.registerNativeClient(client));
    // A text that just fits into a call to the service fits into the one to the client.
    Parcel framing;
    framing.writeInterfaceToken(IPeltoService::descriptor);
    framing.writeString8(String8("type"));
    framing.writeString8(String8());
    const std::string info(transport::kMaxPayload - framing.dataSize() + 3, 'x');
    EXPECT_EQ(FAILED_TRANSACTION, calls.setEvent(String8("type"), String8(info + "x")));
    EXPECT_EQ(OK, calls.setEvent(String8("type"), String8(info)));
    ASSERT_TRUE(client->told.wait());
    EXPECT_TRUE("type$" + info == client->event);
    EXPECT_EQ((Notes{"client", "client again", "event type$" + info}), mService->notes(3));

    Parcel unterminated, reply;
    unterminated.writeInterfaceToken(IPeltoNativeClient::descriptor);
    unterminated.writeCString("type");
    unterminated.write("info", 4);
    EXPECT_EQ(BAD_VALUE,
              client->transact(IPeltoNativeClient::ON_NATIVE_EVENT, unterminated, &reply));
}

TEST_F(PeltoInterfaceTest, uploadsArriveAsAClientsCallsDoAndFindTheServiceThatCameBack) {
    PeltoEventUploadUtils& upload = PeltoEventUploadUtils::getInstance();
    const auto failures = [&] { return logLines("PeltoEventUploadUtils").size(); };
    upload.setEvent(String8("early"), String8());
    EXPECT_EQ(1u, failures());
    {
        Peer before(phone(), "serve", kPeltoServiceName);
        upload.setEvent(String8("type"), String8("to the first"));
    }
    ASSERT_EQ(OK, defaultServiceManager()->addService(String16(kPeltoServiceName), mService));
    // No thread executes calls yet; sending does not wait for one.
    Notes expected;
    for (int i = 0; i < 500; ++i) {
        expected.push_back("event type$" + std::to_string(i));
        upload.setEvent(String8("type"), String8(std::to_string(i)));
    }
    ProcessState::self()->startThreadPool();
    EXPECT_EQ(expected, mService->notes(500));
    EXPECT_EQ(1u, failures());
    upload.setEvent(String8("huge"), String8(std::string(1 << 20, 'x')));
    EXPECT_EQ(2u, failures());
}

}  // namespace
}  // namespace android::binder_test
