#include <gmock/gmock.h>
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoEventUploadUtils.h>
#include <ipeltoservice/PeltoServiceCalls.h>

#include "platform/binder/testing/binder_fixture.h"

namespace android::binder_test {
namespace {

using testing::_;
using testing::Return;
using testing::StrictMock;

class MockService : public BnPeltoService {
  public:
    MOCK_METHOD(status_t, registerNativeClient, (const sp<IPeltoNativeClient>&), (override));
    MOCK_METHOD(void, notifyVideoStutter, (const String8&, int), (override));
    MOCK_METHOD(void, updateSFStateFlag, (bool), (override));
    MOCK_METHOD(void, updateTopActivity, (int64_t), (override));
    MOCK_METHOD(void, setEvent, (const String8&, const String8&), (override));
    MOCK_METHOD(void, setEventToNative, (const String8&, const String8&), (override));
    MOCK_METHOD(void, setDebugLog, (bool), (override));
};

class MockClient : public BnPeltoNativeClient {
  public:
    MOCK_METHOD(status_t, onNativeEvent, (const char*, const char*), (override));
};

class PeltoInterfaceTest : public BinderTest {
  protected:
    status_t transact(uint32_t code, const Parcel& data) {
        Parcel reply;
        return mRemote->transact(code, data, &reply);
    }
    static Parcel call(const String16& token = IPeltoService::descriptor) {
        Parcel data;
        data.writeInterfaceToken(token);
        return data;
    }

    const sp<StrictMock<MockService>> mPelto = sp<StrictMock<MockService>>::make();
};

TEST_F(PeltoInterfaceTest, TheSevenOperationsArriveInSlotOrder) {
    publishAndServe(mPelto, kPeltoServiceName);
    EXPECT_CALL(*mPelto, registerNativeClient(sp<IPeltoNativeClient>())).WillOnce(Return(17));
    EXPECT_CALL(*mPelto, notifyVideoStutter(String8("detector"), -3));
    EXPECT_CALL(*mPelto, updateSFStateFlag(true));
    EXPECT_CALL(*mPelto, updateTopActivity(INT64_MIN));
    EXPECT_CALL(*mPelto, setEvent(String8("type"), String8("key:\xc3\xa9")));
    EXPECT_CALL(*mPelto, setEventToNative(String8(), String8("info")));
    EXPECT_CALL(*mPelto, setDebugLog(false));
    const sp<IPeltoService> service = interface_cast<IPeltoService>(mRemote);
    EXPECT_EQ(IPeltoService::descriptor, mRemote->getInterfaceDescriptor());
    EXPECT_EQ(17, service->registerNativeClient(nullptr));
    service->notifyVideoStutter(String8("detector"), -3);
    service->updateSFStateFlag(true);
    service->updateTopActivity(INT64_MIN);
    service->setEvent(String8("type"), String8("key:\xc3\xa9"));
    service->setEventToNative(String8(), String8("info"));
    service->setDebugLog(false);
    EXPECT_TRUE(testing::Mock::VerifyAndClearExpectations(mPelto.get()));
    static_assert(IPeltoService::UPDATE_SF_STATE_FLAG == 3 && IPeltoService::SET_EVENT == 5 &&
                  IPeltoService::SET_DEBUG_LOG == 7);
}

TEST_F(PeltoInterfaceTest, ACallCutShortReachesNoOperation) {
    publishAndServe(mPelto, kPeltoServiceName);
    for (const uint32_t code : {0u, 8u}) EXPECT_EQ(UNKNOWN_TRANSACTION, transact(code, call()));
    for (uint32_t code = 1; code <= 7; ++code) {
        EXPECT_EQ(PERMISSION_DENIED, transact(code, call(String16("pelto.IPeltoSERVICE")))) << code;
        EXPECT_EQ(NOT_ENOUGH_DATA, transact(code, call())) << code;
    }
    Parcel data = call(), negative = call();
    data.writeString8(String8("type"));
    for (const uint32_t code : {IPeltoService::NOTIFY_VIDEO_STUTTER, IPeltoService::SET_EVENT})
        EXPECT_EQ(NOT_ENOUGH_DATA, transact(code, data)) << code;
    EXPECT_EQ(BAD_TYPE, transact(IPeltoService::REGISTER_NATIVE_CLIENT, data));
    negative.writeInt32(-1);
    EXPECT_EQ(BAD_VALUE, transact(IPeltoService::NOTIFY_VIDEO_STUTTER, negative));
    EXPECT_EQ(OK,
              mRemote->transact(IPeltoService::SET_EVENT, negative, nullptr, IBinder::FLAG_ONEWAY));
    EXPECT_TRUE(waitLogged("W Binder: one-way call 5 of process " + std::to_string(getpid()) +
                           " was refused with " + std::to_string(BAD_VALUE)));
}

TEST_F(PeltoInterfaceTest, ANativeClientIsNotifiedAndKnownAgain) {
    publishAndServe(mPelto, kPeltoServiceName);
    const auto client = sp<StrictMock<MockClient>>::make();
    PeltoServiceCalls calls(mRemote.get());
    std::vector<sp<IPeltoNativeClient>> known;
    EXPECT_CALL(*mPelto, registerNativeClient(_)).WillRepeatedly([&](const auto& given) {
        known.push_back(given);
        return 17;
    });
    for (int i = 0; i < 2; ++i) ASSERT_EQ(17, calls.registerNativeClient(client));
    EXPECT_EQ(known[0], known[1]);

    std::promise<void> notified;
    EXPECT_CALL(*client, onNativeEvent(testing::StrEq("type"), testing::StrEq("key:\xc3\xa9")))
        .WillOnce([&] { return notified.set_value(), OK; });
    EXPECT_EQ(OK, known[0]->onNativeEvent("type", "key:\xc3\xa9"));
    EXPECT_TRUE(wait(notified));
    EXPECT_LE(IPeltoNativeClient::descriptor.size(), IPeltoService::descriptor.size())
        << "an event that fits into a call to the service fits into those to its clients";

    Parcel unterminated = call(IPeltoNativeClient::descriptor), reply;
    unterminated.writeCString("type");
    unterminated.write("info", 4);
    EXPECT_EQ(BAD_VALUE,
              client->transact(IPeltoNativeClient::ON_NATIVE_EVENT, unterminated, &reply));
}

TEST_F(PeltoInterfaceTest, UploadsArriveInOrderAndFindTheServiceThatCameBack) {
    PeltoEventUploadUtils& upload = PeltoEventUploadUtils::getInstance();
    const auto failures = [&] { return logLines("PeltoEventUploadUtils").size(); };
    upload.setEvent(String8("early"), String8());
    EXPECT_EQ(1u, failures());
    {
        Peer before(phone(), kPeltoServiceName);
        upload.setEvent(String8("type"), String8("to the first"));
    }
    ASSERT_EQ(OK, defaultServiceManager()->addService(String16(kPeltoServiceName), mPelto));
    // No thread executes calls yet; sending does not wait for one.
    constexpr int kCalls = 200;
    int next = 0;
    std::promise<void> last;
    EXPECT_CALL(*mPelto, setEvent(String8("type"), _))
        .WillRepeatedly([&](const String8&, const String8& info) {
            EXPECT_EQ(std::to_string(next), info.c_str());
            if (++next == kCalls) last.set_value();
        });
    for (int i = 0; i < kCalls; ++i) upload.setEvent(String8("type"), String8(std::to_string(i)));
    ProcessState::self()->startThreadPool();
    EXPECT_TRUE(wait(last));
    EXPECT_EQ(1u, failures());
    upload.setEvent(String8("huge"), String8(std::string(1 << 20, 'x')));
    EXPECT_EQ(2u, failures());
}

}  // namespace
}  // namespace android::binder_test
