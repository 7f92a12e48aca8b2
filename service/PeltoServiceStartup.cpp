// Construction, start-up of the components, destruction.
#include <android/log.h>
#include <kelvo_multimedia_kernel_event/DisplayKevent.h>

#include "gpu/KelvoGpuMinidump.h"
#include "gpu/KelvoGpuMinidumpFactory.h"
#include "kernel/KelvoAudioKernelNativeCom.h"
#include "logcapture/KelvoDmesgThread.h"
#include "logcapture/KelvoPeltoLogWriter.h"
#include "service/PeltoService.h"
#include "testlistener/EventTest.h"

namespace android {

PeltoService::PeltoService() {
    extendObjectLifetime(OBJECT_LIFETIME_WEAK);
    getWeakRefs()->incWeak(this);
    init();
    __android_log_print(ANDROID_LOG_DEBUG, kServiceTag, "PeltoService");
    mHeldForStartUp = true;
}

// Ignores components that cannot start: the rest works without them.
void PeltoService::init() {
    mDebugLog.store(false, std::memory_order_relaxed);
    mLogWriter = new KelvoPeltoLogWriter();  // makes the dispatcher, the first to need it
    mEventTest = new EventTest();
    mDisplayKevent = new DisplayKevent(this, "mm_kevent_pelto", handleKernelFeedback);
    mDisplayKevent->run("kelvo_fb_pelto", 0, 0);
    mAudioKernelCom = new KelvoAudioKernelNativeCom(this, "knl_nt_com", handleAudioKernelInfo);
    mAudioKernelCom->run("kelvo_audio_mic_check", 0, 0);
    mGpuMinidump = KelvoGpuMinidumpFactory::create();
    // Takes the first strong reference to the service and drops it again when the monitor declines.
    if (mGpuMinidump != nullptr) mGpuMinidump->init(this);
    mDmesgThread = KelvoDmesgThread::createLogThread();
    Mutex::Autolock lock(mLock);
    mUpdateActivityTime = 0;
}

PeltoService::~PeltoService() {
    __android_log_print(ANDROID_LOG_DEBUG, kServiceTag, "~PeltoService");
}

void PeltoService::onFirstRef() {}

void PeltoService::onLastStrongRef(const void* /*id*/) {
    if (mHeldForStartUp.exchange(false)) getWeakRefs()->decWeak(this);
}

}  // namespace android
