// Calls the service's unmarshalling with a code and a parcel's bytes. A call that it takes reaches
// one operation, and calling that with the same arguments again gives the same; any other none.
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoServiceCalls.h>

#include "fuzz/fuzz_input.h"
#include "fuzz/fuzz_parcel.h"
#include "fuzz/fuzz_phone.h"

using namespace android;

namespace {

// Keeps the arguments of the last call.
class RecordingService : public BnPeltoService {
  public:
    status_t registerNativeClient(const sp<IPeltoNativeClient>& client) override {
        mObject = IInterface::asBinder(client);
        return note(REGISTER_NATIVE_CLIENT), OK;
    }
    void notifyVideoStutter(const String8& detector, int frameGap) override {
        mFirst = detector;
        mNumber = frameGap;
        note(NOTIFY_VIDEO_STUTTER);
    }
    void updateSFStateFlag(bool state) override {
        mNumber = state;
        note(UPDATE_SF_STATE_FLAG);
    }
    void updateTopActivity(int64_t minIntervalMillis) override {
        mNumber = minIntervalMillis;
        note(UPDATE_TOP_ACTIVITY);
    }
    void setEvent(const String8& type, const String8& info) override {
        mFirst = type;
        mSecond = info;
        note(SET_EVENT);
    }
    void setEventToNative(const String8& type, const String8& info) override {
        mFirst = type;
        mSecond = info;
        note(SET_EVENT_TO_NATIVE);
    }
    void setDebugLog(bool on) override {
        mNumber = on;
        note(SET_DEBUG_LOG);
    }

    // The same call over the client's side of the interface.
    void repeatOn(IBinder* service) const {
        PeltoServiceCalls calls(service);
        switch (mOperation) {
            case REGISTER_NATIVE_CLIENT:
                calls.registerNativeClient(interface_cast<IPeltoNativeClient>(mObject));
                break;
            case NOTIFY_VIDEO_STUTTER:
                calls.notifyVideoStutter(mFirst, static_cast<int>(mNumber));
                break;
            case UPDATE_SF_STATE_FLAG:
                calls.updateSFStateFlag(mNumber != 0);
                break;
            case UPDATE_TOP_ACTIVITY:
                calls.updateTopActivity(mNumber);
                break;
            case SET_EVENT:
                calls.setEvent(mFirst, mSecond);
                break;
            case SET_EVENT_TO_NATIVE:
                calls.setEventToNative(mFirst, mSecond);
                break;
            default:
                calls.setDebugLog(mNumber != 0);
        }
    }
    bool sameAs(const RecordingService& other) const {
        return mCalls == other.mCalls && mOperation == other.mOperation && mFirst == other.mFirst &&
               mSecond == other.mSecond && mNumber == other.mNumber && mObject == other.mObject;
    }
    int calls() const { return mCalls; }
    uint32_t operation() const { return mOperation; }

  private:
    void note(uint32_t operation) {
        mOperation = operation;
        ++mCalls;
    }

    int mCalls = 0;
    uint32_t mOperation = 0;
    String8 mFirst, mSecond;
    int64_t mNumber = 0;
    sp<IBinder> mObject;
};

class Client : public BnPeltoNativeClient {
    status_t onNativeEvent(const char*, const char*) override { return OK; }
};

bool isOperation(uint32_t code) {
    return code >= IPeltoService::REGISTER_NATIVE_CLIENT && code <= IPeltoService::SET_DEBUG_LOG;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzPhone();  // for the lines about refused calls
    FuzzInput input(data, size);
    const uint8_t head = input.byte();
    const uint32_t code = head & 0x0f;
    const uint32_t flags = (head & 0x80) != 0 ? uint32_t{IBinder::FLAG_ONEWAY} : 0;
    Parcel token;
    if ((head & 0x40) == 0) token.writeInterfaceToken(IPeltoService::descriptor);
    const std::string bytes =
        std::string(reinterpret_cast<const char*>(token.data()), token.dataSize()) +
        std::string(input.rest());
    const auto service = sp<RecordingService>::make(), second = sp<RecordingService>::make();
    Parcel reply;
    const status_t status =
        service->transact(code, receivedParcel(bytes, sp<Client>::make()), &reply, flags);
    require(service->calls() == (status == OK ? 1 : 0), "one operation, or none when refused");
    require(isOperation(code) || status == UNKNOWN_TRANSACTION, "unknown codes are refused");
    if (status != OK) return 0;
    require(service->operation() == code, "the operation is that of the code");
    service->repeatOn(second.get());
    require(service->sameAs(*second), "repeating the call gives the same");
    return 0;
}
