// The collection: what is copied, captured, packed and pruned for a fault.
#include <android/log.h>
#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "event/time_stamp.h"
#include "gpu/KelvoGpuMinidump.h"
#include "gpu/gpu_names.h"
#include "phone/phone.h"

namespace android {

namespace {

constexpr size_t kBlockBytes = 4096;
constexpr int kMostBlocks = 10242;  // so that a runaway snapshot does not fill the disk
constexpr int kMostEntries = 20;
constexpr uint32_t kLeastBytes = 64;  // of a buffer for a time or a version

void runCommand(const String8& command) {
    const int status = phone::system(command.c_str());
    if (status == 0) return;
    __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "cmds: %s, %d", command.c_str(), status);
}

void captureLogs(const char* name, int round) {
    runCommand(String8::format("/system/bin/dmesg > %s_dmesg%d.txt", name, round));
    runCommand(String8::format("logcat -d -v threadtime > %s_android%d.txt", name, round));
}

void copyBlocks(int from, int to) {
    char block[kBlockBytes + 1] = {};
    for (int blocks = 0; blocks < kMostBlocks; ++blocks) {
        const ssize_t got = read(from, block, kBlockBytes);
        if (got <= 0) return;
        // Not checked: on a full disk the logs are collected all the same.
        [[maybe_unused]] const ssize_t ignored = write(to, block, static_cast<size_t>(got));
    }
}

}  // namespace

bool KelvoGpuMinidump::copyDumpFile(const char* path) {
    const int from = phone::open(kGpuDump, O_RDONLY | O_CLOEXEC);
    if (from < 0) {
        __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "open platform dumpfile error: %s",
                            strerror(errno));
        return false;
    }
    const int to = phone::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0777);
    if (to < 0) {
        __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "open kelvo dumpfile error: %s",
                            strerror(errno));
        close(from);
        return false;
    }
    copyBlocks(from, to);
    close(from);
    close(to);
    return true;
}

void KelvoGpuMinidump::getLogBytread(const String8& name) {
    std::thread([this, &name] { getLog(name); }).join();
}

void KelvoGpuMinidump::getLog(const String8& name) {
    const char* const start = name.c_str();
    captureLogs(start, 1);
    phone::sleep(20);
    captureLogs(start, 2);
    runCommand(String8::format("tar -czf %s.tar.gz %s*", start, start));
    runCommand(String8::format("chmod 0777 %s.tar.gz", start));
    runCommand(String8::format("rm -rf %s*.txt", start));
    runCommand(String8::format("rm -rf %s*.snap", start));
    Mutex::Autolock lock(mLock);
    ++mFileCount;
}

void KelvoGpuMinidump::removefile() {
    DIR* const directory = phone::opendir(kGpuDirectory);
    if (directory == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, kGpuTag, "removefile opendir failed, error=%s",
                            strerror(errno));
        return;
    }
    // Coarse on purpose: neither age nor what other processes made is looked at.
    for (int i = 0; i < kMostEntries; ++i) {
        const struct dirent* const entry = readdir(directory);
        if (entry == nullptr) break;
        // Asked of the bit: it is set for block devices and sockets too.
        if ((entry->d_type & DT_DIR) != 0) continue;
        const String8 path = String8::format("%s%s", kGpuDirectory, entry->d_name);
        if (strstr(path.c_str(), "tar.gz") == nullptr) continue;
        phone::remove(path.c_str());
        Mutex::Autolock lock(mLock);
        --mFileCount;
    }
    closedir(directory);
}

int32_t KelvoGpuMinidump::getFileCount() {
    Mutex::Autolock lock(mLock);
    return mFileCount;
}

int32_t KelvoGpuMinidump::getCurrentTime(char* buf, int32_t len) {
    return writeTimeStamp(kGpuTag, "_", buf, len);
}

void KelvoGpuMinidump::getOtaVersion(char* buf, uint32_t len) {
    if (buf == nullptr || len < kLeastBytes) {
        __android_log_print(ANDROID_LOG_ERROR, kGpuTag, "getOtaVersion buf is null");
        return;
    }
    // A value may be longer than the caller's buffer.
    char version[kPropertyBytes];
    property_get(kOtaVersion, version, "0");
    snprintf(buf, len, "%.*s", static_cast<int>(len - 1), version);
}

}  // namespace android
