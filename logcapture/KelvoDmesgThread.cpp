#include "logcapture/KelvoDmesgThread.h"

#include <android/log.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "event/PeltoEvent.h"
#include "event/PeltoEventDisptch.h"
#include "phone/phone.h"

namespace android {

namespace {

constexpr char kTag[] = "KelvoDmesgThread";
constexpr char kDumpLog[] = "event_audio_detect_dump_log";
constexpr int32_t kUrgentAudio = -19;
constexpr useconds_t kPauseMicros = 10000;

// The directory of this file exists on the phone already.
#define AD_DMESG "/data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt"
constexpr const char* kCommands[] = {
    "touch " AD_DMESG,
    "chmod 777 " AD_DMESG,
    "dmesg -c > " AD_DMESG,
};
#undef AD_DMESG

}  // namespace

std::atomic<bool> KelvoDmesgThread::mInit{false};
sp<KelvoDmesgThread> KelvoDmesgThread::mLogThread;

sp<KelvoDmesgThread> KelvoDmesgThread::createLogThread() {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "KelvoDmesgThread: createLogThread()");
    if (mInit.load(std::memory_order_acquire)) return nullptr;
    mLogThread = new KelvoDmesgThread();
    mInit.store(true, std::memory_order_release);
    return mLogThread;
}

KelvoDmesgThread::KelvoDmesgThread() : Thread(true) {
    registerEventLister();
}

void KelvoDmesgThread::registerEventLister() {
    mEventTypes.add(kDumpLog);
    mName = "KelvoDmesgThread";
    // Takes the first reference, which starts the thread.
    PeltoEventDisptch::getInstance().registerEventListener(this);
}

void KelvoDmesgThread::onFirstRef() {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "KelvoDmesgThread onFirstRef");
    run("KelvoDmesgThread", kUrgentAudio, 0);
}

status_t KelvoDmesgThread::readyToRun() {
    const status_t status = initCheck();
    if (status != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "KelvoDmesgThread readyToRun status %d",
                            status);
        return status;
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "KelvoDmesgThread %p tid=%d ready to run",
                        static_cast<void*>(this), static_cast<int>(gettid()));
    return status;
}

status_t KelvoDmesgThread::initCheck() const {
    return mInit.load(std::memory_order_acquire) && mLogThread != nullptr ? 0 : NO_INIT;
}

void KelvoDmesgThread::handleEvent(std::string event) {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "handleEvent event %s", event.c_str());
    const sp<PeltoEvent> record = new PeltoEvent(std::move(event));
    const std::string type = record->getEventType();
    const std::string info = record->getEventInfo();
    if (type != kDumpLog) return;
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "handleEvent eventInfo %s", info.c_str());
    dumpKernelLog();
}

void KelvoDmesgThread::dumpKernelLog() {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "dumpKernelLog");
    Mutex::Autolock lock(mLock);
    if (mDumping.load(std::memory_order_relaxed) || !mSleeping) return;
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "dumpKernelLog signal");
    mCondition.notify_one();
}

// Called once: its loop runs for the whole life of the thread.
bool KelvoDmesgThread::threadLoop() {
    while (awaitRequest()) {
        mDumping.store(true, std::memory_order_relaxed);
        runCommands();
        phone::usleep(kPauseMicros);
        mDumping.store(false, std::memory_order_relaxed);
    }
    return false;
}

bool KelvoDmesgThread::awaitRequest() {
    Mutex::Autolock lock(mLock);
    const bool exit = exitPending();
    if (mDumping.load(std::memory_order_relaxed) || exit) return !exit;
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "KelvoDmesgThread going to sleep");
    mSleeping = true;
    // No loop, on purpose: every wake-up counts as a request.
    mCondition.wait(mLock);
    mSleeping = false;
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "KelvoDmesgThread waking up");
    return true;
}

void KelvoDmesgThread::runCommands() {
    for (const char* command : kCommands) {
        const int result = phone::system(command);
        __android_log_print(ANDROID_LOG_DEBUG, kTag, "KelvoDmesgThread: %s, err=%d (%s)", command,
                            result, strerror(errno));
    }
}

}  // namespace android
