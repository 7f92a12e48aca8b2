// The monitor half of KelvoGpuMinidump: waits for faults and handles each.
#include "gpu/KelvoGpuMinidump.h"

#include <android-base/properties.h>
#include <android/log.h>
#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <kstatslog/kstatslog.h>
#include <pthread.h>
#include <sched.h>
#include <string.h>
#include <unistd.h>

#include "event/phone_integer.h"
#include "phone/phone.h"

namespace android {

namespace {

constexpr char kTimestamp[] = "/sys/class/kgsl/kgsl-3d0/snapshot/timestamp";
constexpr char kControl[] = "/sys/class/kgsl/kgsl-3d0/snapshot/snapshot_control";
constexpr char kHashId[] = "/sys/class/kgsl/kgsl-3d0/snapshot/snapshot_hashid";
constexpr size_t kTextBytes = 64;  // the buffer of the timestamp and of the hash id
constexpr int kMaxArchives = 11;
// Results of readControl() besides the first character of the control file.
constexpr int kMissing = -1;
constexpr int kEmpty = -2;
constexpr int kAllowed = '0';

int readControl() {
    FILE* file = phone::fopen(kControl, "rb");
    if (file == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, KelvoGpuMinidump::kGpuTag,
                            "gpu minidump control openfile error %s, sleep for a while!",
                            strerror(errno));
        return kMissing;
    }
    const int first = fgetc(file);
    fclose(file);
    return first == EOF ? kEmpty : first;
}

int64_t wallMillis() {
    struct timeval now = {};
    phone::gettimeofday(&now, nullptr);
    return int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
}

}  // namespace

KelvoGpuMinidump::KelvoGpuMinidump() {
    mEnabled = disableFeature4G();
    __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "KelvoGpuMinidump::KelvoGpuMinidump");
}

KelvoGpuMinidump::~KelvoGpuMinidump() {
    __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "KelvoGpuMinidump::~KelvoGpuMinidump");
}

bool KelvoGpuMinidump::disableFeature4G() {
    char size[kMaxPropertyBytes];
    property_get("ro.kelvo.memory.size", size, "0");
    const bool optimize = base::GetBoolProperty("ro.kelvo.mm_memory.optimize", false);
    if (phoneAtoi(size) != 4 || !optimize) return true;
    __android_log_print(ANDROID_LOG_INFO, kGpuTag, "KelvoFennix isDisable4G set false");
    return false;
}

bool KelvoGpuMinidump::init(const sp<IPeltoService>& service) {
    if (mInited || !mEnabled) return mInited;
    mInited = true;
    mService = service;
    mThread = std::thread(&KelvoGpuMinidump::threadMain, this);
    // "KelvoGpuMinidump" has one character more than the kernel takes.
    pthread_setname_np(mThread.native_handle(), "KelvoGpuMinidum");
    const struct sched_param priority = {};
    if (pthread_setschedparam(mThread.native_handle(), SCHED_OTHER, &priority) != 0) {
        __android_log_print(ANDROID_LOG_WARN, kGpuTag,
                            "Couldn't set SCHED_OTHER for KelvoGpuMinidump");
    }
    __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "init %d", mInited);
    return mInited;
}

void KelvoGpuMinidump::threadMain() {
    const int fd = phone::open(kTimestamp, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_DEBUG, kGpuTag,
                            "gpu timestamp file open failed,error %d, %s", fd, strerror(errno));
        return;
    }
    struct pollfd watch = {fd, POLLPRI | POLLERR, 0};
    while (phone::poll(&watch, 1, -1) != -1) {
        handleNotification(fd);
        watch.revents = 0;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "pelto hashid poll error");
    close(fd);
}

void KelvoGpuMinidump::handleNotification(int timestampFd) {
    // While dumping is not allowed the attribute stays unread, so that the fault is collected once
    // it is. An unread attribute stays ready: one pause per pass keeps the loop from spinning.
    if (readControl() != kAllowed) {
        phone::sleep(1);
        return;
    }
    char timestamp[kTextBytes] = {};
    const ssize_t got = phone::pread(timestampFd, timestamp, sizeof(timestamp), 0);
    if (got <= 0 || timestamp[0] == '0') {
        __android_log_print(ANDROID_LOG_DEBUG, kGpuTag,
                            "pelto hashid read error %d, hashchar[0]=%c", static_cast<int>(got),
                            timestamp[0]);
    } else {
        timestamp[got - 1] = '\0';  // the newline
        capture(timestamp);
    }
    acknowledge();
    // The attribute of a vanished device is always ready: do not spin.
    if (got < 0) phone::sleep(1);
}

bool KelvoGpuMinidump::allowGpuDump() {
    const int control = readControl();
    if (control == kMissing) phone::sleep(1);
    return control == kAllowed;
}

void KelvoGpuMinidump::capture(const char* timestamp) {
    char reason[256] = {};
    readFaultReason(reason);
    // The hash id is used as the driver gave it, including a newline.
    const char* const id = reason[0] != '\0' ? reason : timestamp;
    String8 name(kGpuDirectory);
    name.append("gpudump@");
    name.append(id);
    feedbackInfo(id);

    char version[kMaxPropertyBytes];
    char time[kTextBytes] = {};
    property_get(kOtaVersion, version, "0");
    getCurrentTime(time, sizeof(time));
    name.appendFormat("@%s@%s", version, time);
    copyDumpFile((name + String8(".snap")).c_str());
    getLogBytread(name);
    if (getFileCount() >= kMaxArchives) removefile();
}

void KelvoGpuMinidump::readFaultReason(char* buf) {
    const int fd = phone::open(kHashId, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_DEBUG, kGpuTag,
                            "snapshot_hashid file open failed,error %d, %s", fd, strerror(errno));
        return;
    }
    phone::pread(fd, buf, kTextBytes, 0);
    close(fd);
    KelvoFramework::stats_write(101286, 134600, "gpuGrivoEvents", "renderthreadNoDraw",
                                wallMillis(), 0, 3, "gpuMinidump");
}

void KelvoGpuMinidump::feedbackInfo(const char* reason) {
    if (mService == nullptr) return;
    const String8 info = String8::format("EventID,410,Reason,%s", reason);
    mService->setEvent(String8("pelto_event_peltoserver_feedback"), info);
    __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "%s", info.c_str());
}

// Reads a byte of the dump, which lets the driver signal the next snapshot.
void KelvoGpuMinidump::acknowledge() {
    FILE* file = phone::fopen(kGpuDump, "rb");
    if (file == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "fopen platform dumpfile error=%s",
                            strerror(errno));
        return;
    }
    char byte;
    [[maybe_unused]] const size_t got = fread(&byte, 1, 1, file);
    fclose(file);
}

}  // namespace android
