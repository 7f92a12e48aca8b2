// The service's handlers of the two kernel channels. Each runs on its channel's thread and gets the
// service as its owner.
#include <android/log.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <ipeltoservice/PeltoEventUploadUtils.h>
#include <sys/types.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "event/phone_integer.h"
#include "kernel/KelvoAudioKernelNativeCom.h"
#include "service/PeltoService.h"

namespace android {

namespace {

constexpr char kFeedbackEvent[] = "pelto_event_peltoserver_feedback";
constexpr char kMicStateEvent[] = "event_audio_mic_state";
constexpr char kMicStatusEvent[] = "event_audio_mic_status";
constexpr int32_t kMicState = 0;
constexpr int32_t kMicStatus = 1;
constexpr uint32_t kDisplayNotice = 22006;
constexpr size_t kMaxItem = 512;
// Byte offsets in a display packet; the other bytes belong to the channel.
constexpr size_t kEventId = 132;
constexpr size_t kPayload = 264;

// The event id of a display packet; its field may lack a terminator.
int idOf(const char* packet) {
    const char* const text = packet + kEventId;
    return phoneAtoi(std::string(text, strnlen(text, kPayload - kEventId)).c_str());
}

// Appends "#key#value" of each item "key@@value"; items are separated by runs of "$". Skips "NULL"
// and items without "@@"; cuts an item to kMaxItem bytes. Changes the payload.
void appendItems(char* payload, char* work, String8* info) {
    char* rest = nullptr;
    for (const char* item = strtok_r(payload, "$", &rest); item != nullptr;
         item = strtok_r(nullptr, "$", &rest)) {
        if (strcmp(item, "NULL") == 0) continue;
        const size_t length = strnlen(item, kMaxItem);
        memcpy(work, item, length);
        work[length] = '\0';
        char* const separator = strstr(work, "@@");
        if (separator == nullptr) continue;
        *separator = '\0';
        info->appendFormat("#%s#%s", work, separator + 2);
    }
}

// 1 when bit 0 and at least one of bits 8 and 9 are set, else 0.
int micStatus(int value) {
    return static_cast<int>((value & 0x300) != 0) & value;
}

void reportMic(const char* event, const char* what, const char* payload, const String8& info) {
    __android_log_print(ANDROID_LOG_DEBUG, PeltoService::kServiceTag,
                        "The data from kernel is %s, %s value is %s", payload, what, info.c_str());
    PeltoEventUploadUtils::getInstance().setEvent(String8(event), info);
}

}  // namespace

bool PeltoService::handleKernelFeedback(void* owner, mm_kevent_packet* packet) {
    if (owner == nullptr || packet == nullptr) return false;
    const std::unique_ptr<char[]> work(new (std::nothrow) char[kMaxItem + 1]());
    if (work == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kServiceTag,
                            "handleKernelFeedback: malloc %d bytes failed",
                            static_cast<int>(kMaxItem + 1));
        return false;
    }
    const int id = idOf(reinterpret_cast<char*>(packet));
    char* const payload = reinterpret_cast<char*>(packet) + kPayload;
    String8 info = String8::format("MM_FB_EventID#%d", id);
    __android_log_print(ANDROID_LOG_DEBUG, kServiceTag,
                        "handleKernelFeedback: MM_FB_EventID:%d, data:%s", id, payload);
    appendItems(payload, work.get(), &info);
    static_cast<PeltoService*>(owner)->setEvent(String8(kFeedbackEvent), info);
    notifySurfaceFlinger(id, info);
    return true;
}

bool PeltoService::handleAudioKernelInfo(void* owner, kernel_to_native_packet* packet) {
    if (owner == nullptr || packet == nullptr) return false;
    __android_log_print(ANDROID_LOG_DEBUG, kServiceTag, "receive cmd=%d, len=%zd, data=%s",
                        packet->cmd, static_cast<ssize_t>(static_cast<int32_t>(packet->len)),
                        packet->payload);
    const int value = phoneAtoi(packet->payload);
    if (packet->cmd == kMicStatus) {
        reportMic(kMicStatusEvent, "mic status", packet->payload,
                  String8::format("status:%d", micStatus(value)));
    } else if (packet->cmd == kMicState) {
        reportMic(kMicStateEvent, "packet", packet->payload, String8::format("state:%d", value));
    } else {
        __android_log_print(ANDROID_LOG_ERROR, kServiceTag,
                            "handleAudioKernelInfo: unsupport cmd=%d", packet->cmd);
    }
    return true;
}

// Blocks until the compositor has answered; logs the status of the call and ignores the reply.
// Sends nothing when no compositor is published.
void PeltoService::notifySurfaceFlinger(int32_t eventId, const String8& info) {
    const sp<IServiceManager> manager = defaultServiceManager();
    if (manager == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kServiceTag, "notifySurfaceFlinger sm null");
        return;
    }
    const sp<IBinder> compositor = manager->getService(String16("SurfaceFlinger"));
    if (compositor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kServiceTag, "notifySurfaceFlinger sf null");
        return;
    }
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(String16("android.ui.ISurfaceComposer"));
    data.writeInt32(eventId);
    data.writeString8(info);
    const status_t status = compositor->transact(kDisplayNotice, data, &reply, 0);
    __android_log_print(ANDROID_LOG_DEBUG, kServiceTag, "notifySurfaceFlinger transact ret=%d",
                        status);
}

}  // namespace android
