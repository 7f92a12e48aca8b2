#pragma once

#include <ipeltoservice/IPeltoService.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include <cstddef>
#include <cstdint>
#include <thread>

#include "looper/thread_annotations.h"

namespace android {

// Waits for the graphics driver to signal a fault and collects its snapshot and the logs around it
// into one archive, named after the fault, below /data/kelvo/mmdump/gpu/.
//
// Ownership: held by a shared pointer until the process ends; it keeps the service that it reports
//   to. The monitor's thread is never joined: destroying a started monitor ends the process.
// Threads: init() from one thread. The monitor's thread takes one fault after the other and waits
//   for the collector's thread of each; mLock is never held while calling out.
// Order: of faults that occur during a collection, or while dumping is not allowed, the last one is
//   collected next; the others are lost with their snapshots. The monitor checks once a second
//   whether a waiting fault may be collected.
// Errors: a thread that cannot be created raises std::system_error. The monitor ends for good when
//   the timestamp file cannot be opened or polled. Any other error is a debug line, and it goes on.
class KelvoGpuMinidump {
  public:
    static constexpr char kGpuTag[] = "KelvoGpuMinidump";  // the tag of its log lines
    static constexpr char kGpuDump[] = "/sys/class/kgsl/kgsl-3d0/snapshot/dump";
    static constexpr char kGpuDirectory[] = "/data/kelvo/mmdump/gpu/";
    static constexpr char kOtaVersion[] = "ro.build.version.ota";
    static constexpr size_t kMaxPropertyBytes = 92;  // of a property's value with its terminator

    KelvoGpuMinidump();
    ~KelvoGpuMinidump();

    // Starts the monitor, once, where the phone's memory allows it; returns whether it is started.
    bool init(const sp<IPeltoService>& service);

    // Despite its name: whether the monitor may run on this phone.
    static bool disableFeature4G();
    // Whether a dump may be taken; sleeps for a second when the control file is missing.
    static bool allowGpuDump();
    // Reads the driver's hash id of the fault, up to 64 bytes without a terminator, and records the
    // fault with the statistics. Does neither when the file cannot be opened.
    static void readFaultReason(char* buf);
    void feedbackInfo(const char* reason);

    // Copies the driver's snapshot to `path`. False when either file cannot be opened; writes are
    // not checked.
    static bool copyDumpFile(const char* path);
    // Runs getLog() on a thread of its own and waits for it: 20 seconds and more.
    void getLogBytread(const String8& name) EXCLUDES(mLock);
    // Captures the logs twice and packs all files whose names start with `name`.
    void getLog(const String8& name) EXCLUDES(mLock);
    // Removes every archive among the first 20 entries of the directory, regardless of age.
    void removefile() EXCLUDES(mLock);
    // How many archives this process has made and not pruned since.
    int32_t getFileCount() EXCLUDES(mLock);

    // Local time as "_2024-03-05_14-07-09": 0, or -1 and an error line. `len` must be 64 or more.
    static int32_t getCurrentTime(char* buf, int32_t len);
    // Reads the version of the phone's software, cut to `len`. Only logs an error when `buf` is
    // null or `len` below 64.
    static void getOtaVersion(char* buf, uint32_t len);

  private:
    void threadMain();
    void handleNotification(int timestampFd);
    void capture(const char* timestamp);
    static void acknowledge();

    int32_t mFileCount GUARDED_BY(mLock) = 0;
    bool mInited = false;
    bool mEnabled = false;
    sp<IPeltoService> mService;
    Mutex mLock;
    std::thread mThread;
};

}  // namespace android
