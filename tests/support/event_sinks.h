// Receivers of events for tests of what sends them: they log "TYPE$INFO".
#pragma once

#include <android/log.h>
#include <ipeltoservice/IPeltoService.h>

namespace android {

// A native client; logs under the tag "client".
class LoggingClient : public BnPeltoNativeClient {
  public:
    status_t onNativeEvent(const char* type, const char* info) override {
        __android_log_print(ANDROID_LOG_INFO, "client", "%s$%s", type, info);
        return OK;
    }
};

// A service that takes events alone; logs under the given tag.
class LoggingService : public BnPeltoService {
  public:
    explicit LoggingService(const char* tag) : mTag(tag) {}
    void setEvent(const String8& type, const String8& info) override {
        __android_log_print(ANDROID_LOG_INFO, mTag, "%s$%s", type.c_str(), info.c_str());
    }
    status_t registerNativeClient(const sp<IPeltoNativeClient>&) override { return OK; }
    void notifyVideoStutter(const String8&, int) override {}
    void updateSFStateFlag(bool) override {}
    void updateTopActivity(int64_t) override {}
    void setEventToNative(const String8&, const String8&) override {}
    void setDebugLog(bool) override {}

  private:
    const char* const mTag;
};

}  // namespace android
