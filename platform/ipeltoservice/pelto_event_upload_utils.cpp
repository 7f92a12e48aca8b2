#include <android/log.h>
#include <binder/transport/binder_process.h>
#include <ipeltoservice/IPeltoService.h>
#include <ipeltoservice/PeltoEventUploadUtils.h>
#include <ipeltoservice/PeltoServiceCalls.h>

namespace android {

ANDROID_SINGLETON_STATIC_INSTANCE(PeltoEventUploadUtils)

status_t PeltoEventUploadUtils::sendLocked(const String8& type, const String8& info) {
    if (mService == nullptr) {
        mService = transport::Process::get().services().connect(kPeltoServiceName);
    }
    if (mService == nullptr) return NAME_NOT_FOUND;
    const status_t status =
        PeltoServiceCalls(mService.get()).setEvent(type, info, IBinder::FLAG_ONEWAY);
    if (status == DEAD_OBJECT) mService.clear();
    return status;
}

void PeltoEventUploadUtils::setEvent(const String8& type, const String8& info) {
    Mutex::Autolock lock(mLock);
    status_t status = sendLocked(type, info);
    // The service may have restarted since the last event.
    if (status == DEAD_OBJECT) status = sendLocked(type, info);
    if (status == OK) return;
    __android_log_print(ANDROID_LOG_ERROR, "PeltoEventUploadUtils", "event %s is not sent: %d",
                        type.c_str(), status);
}

}  // namespace android
