#include "logcapture/KelvoPeltoLogThread.h"

#include <android/log.h>

#include <cstring>

#include "event/phone_integer.h"
#include "event/time_stamp.h"
#include "logcapture/commands.h"
#include "logcapture/directories.h"
#include "logcapture/log_information.h"

namespace android {

namespace {

constexpr char kTag[] = "KelvoPeltoLogThread";
constexpr size_t kMaxLogTypeLength = 7;
constexpr int kLogTypeBits = 7;

}  // namespace

KelvoPeltoLogThread::KelvoPeltoLogThread(const String8& info) : Thread(true), mEventInfo(info) {
    init();
}

KelvoPeltoLogThread::~KelvoPeltoLogThread() {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "~KelvoPeltoLogThread()");
    if (isRunning()) requestExitAndWait();
}

void KelvoPeltoLogThread::init() {
    LogInformation fields;
    if (!splitLogInformation(mEventInfo, fields)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, log info error!", "init");
        return;
    }
    char time[kMinTimeStampBytes] = {};
    getCurrentTime(time, sizeof time);
    mEventId = fields[kEventId];
    mLogType = fields[kLogTypes];
    mLogPath = fields[kLogPath];
    mTarPath = fields[kTarPath];
    mTarName = fields[kTarName];
    mCurrentTime = String8(time);
}

status_t KelvoPeltoLogThread::start(const char* name, int32_t priority, size_t stack) {
    return run(name, priority, stack);
}

void KelvoPeltoLogThread::quit() {
    if (isRunning()) requestExitAndWait();
}

bool KelvoPeltoLogThread::threadLoop() {
    doLogCaputure();
    doCompressFile();
    deleteFiles();
    return true;
}

void KelvoPeltoLogThread::doLogCaputure() {
    if (mEventInfo.isEmpty() || mLogType.isEmpty() || mLogType.length() > kMaxLogTypeLength) return;
    if (!checkPath(mLogPath) || !checkPath(mTarPath)) return;
    const int types = phoneAtoi(mLogType.c_str());
    for (int bit = 0; bit < kLogTypeBits; ++bit) capture(static_cast<uint8_t>(types & (1 << bit)));
}

void KelvoPeltoLogThread::capture(uint8_t logType) {
    switch (logType) {
        case kAndroidLog:
            return getAndroidLog();
        case kKernelLog:
            return getKernelLog();
        case kAudioDump:
            return getAudioDumpLog();
        case kSystrace:
            return getSystraceLog();
        case kStackTrace:
        case kPcmDump:
        case kQxdmLog:
            return;  // accepted, but not captured here
        // On purpose also reached for each bit that is not set.
        default:
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Unknown log type!");
    }
}

void KelvoPeltoLogThread::getAndroidLog() {
    captureOutput("logcat -v threadtime -d", "_android.txt");
}

void KelvoPeltoLogThread::getKernelLog() {
    captureOutput("dmesg", "_dmesg.txt");
}

void KelvoPeltoLogThread::getAudioDumpLog() {
    captureOutput("dumpsys media.audio_flinger", "_audioflinger.txt");
    captureOutput("dumpsys media.audio_policy", "_audiopolicy.txt");
    captureOutput("dumpsys audio", "_audio.txt");
}

void KelvoPeltoLogThread::getSystraceLog() {
    runReported(kTag, String8::format("perfetto --config :test --out %s%s%s", mLogPath.c_str(),
                                      mCurrentTime.c_str(), "_systrace.perfetto-trace"));
}

void KelvoPeltoLogThread::captureOutput(const char* command, const char* suffix) {
    runReported(kTag, String8::format("%s > %s%s%s", command, mLogPath.c_str(),
                                      mCurrentTime.c_str(), suffix));
}

String8 KelvoPeltoLogThread::archivePath() const {
    return String8::format("%s%s@%s.tar.gz", mTarPath.c_str(), mTarName.c_str(),
                           mCurrentTime.c_str());
}

void KelvoPeltoLogThread::doCompressFile() {
    const String8 archive = archivePath();
    // Cuts the event id and a "/" off by length alone, even if the path does not end with them.
    const int n = static_cast<int>(mLogPath.length()) - static_cast<int>(mEventId.length()) - 1;
    if (n < 1) return;
    const String8 parent(mLogPath.c_str(), static_cast<size_t>(n - 1));
    const String8 pack = String8::format("%s %s -C %s %s", "tar -czf", archive.c_str(),
                                         parent.c_str(), mEventId.c_str());
    if (const int result = runGuarded(kTag, pack)) {
        __android_log_print(ANDROID_LOG_DEBUG, kTag, "cmds failed: tar -czf, mEventId=%s, err=%d",
                            mEventId.c_str(), result);
    }
    const String8 open = String8::format("%s %s", "chmod 0777", archive.c_str());
    if (const int result = runGuarded(kTag, open)) {
        __android_log_print(ANDROID_LOG_DEBUG, kTag, "cmds failed: chmod, err=%d", result);
    }
}

void KelvoPeltoLogThread::deleteFiles() {
    runReported(kTag, String8::format("%s %s", "rm -rf", mLogPath.c_str()));
}

bool KelvoPeltoLogThread::checkPath(String8 logPath) {
    return makeDirectories(kTag, logPath);
}

int32_t KelvoPeltoLogThread::getCurrentTime(char* buf, int32_t size) {
    if (buf != nullptr && size >= kMinTimeStampBytes) memset(buf, 0, kMinTimeStampBytes);
    return writeTimeStamp(kTag, "", buf, size);
}

}  // namespace android
