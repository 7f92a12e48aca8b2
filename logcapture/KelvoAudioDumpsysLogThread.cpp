#include "logcapture/KelvoAudioDumpsysLogThread.h"

#include <android/log.h>
#include <cutils/properties.h>

#include <memory>
#include <string>

#include "logcapture/commands.h"
#include "logcapture/directories.h"
#include "phone/phone.h"

namespace android {

namespace {

constexpr char kTag[] = "KelvoAudioDumpsysLogThread";
constexpr char kDumpPath[] = "/data/persist_log/TMP/audio_dumpsys/";
constexpr int kMaxDumpFiles = 10;
constexpr char kDumpTypeProperty[] = "kelvo.audio.dumpinfo.type";
constexpr char kStartProperty[] = "ctl.start";
constexpr char kDumpService[] = "audiodumpinfo";

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

struct DumpFiles {
    int count = 0;       // all regular files, even those that stat() fails on
    std::string oldest;  // empty when stat() failed on all
    time_t oldestTime = 0;

    void add(const char* name) {
        ++count;
        // The directory already ends in "/"; the second one is harmless.
        const std::string path = (std::string(kDumpPath) + '/' + name).substr(0, kMaxPathBytes - 1);
        struct stat status {};
        if (phone::stat(path.c_str(), &status) != 0) return;
        if (!oldest.empty() && status.st_mtime >= oldestTime) return;
        oldest = path;
        oldestTime = status.st_mtime;
    }
};

}  // namespace

KelvoAudioDumpsysLogThread::KelvoAudioDumpsysLogThread(const String8& info)
    : Thread(true), mDumpType(info) {
    checkDumpFiles();
}

KelvoAudioDumpsysLogThread::~KelvoAudioDumpsysLogThread() {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "~KelvoAudioDumpsysLogThread()");
    if (isRunning()) requestExitAndWait();
}

status_t KelvoAudioDumpsysLogThread::start(const char* name, int32_t priority, size_t stack) {
    return run(name, priority, stack);
}

void KelvoAudioDumpsysLogThread::quit() {
    if (isRunning()) requestExitAndWait();
}

bool KelvoAudioDumpsysLogThread::threadLoop() {
    if (mDumpType.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "invalid mDumpType.");
        return false;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "start audio dump info, mDumpType:%s",
                        mDumpType.c_str());
    // Sets the type first: the service reads it at its start.
    property_set(kDumpTypeProperty, mDumpType.c_str());
    property_set(kStartProperty, kDumpService);
    return true;
}

void KelvoAudioDumpsysLogThread::checkDumpFiles() {
    Directory directory(phone::opendir(kDumpPath));
    if (directory == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "DUMP_PATH open failed.");
        return;
    }
    DumpFiles files;
    while (const dirent* entry = readdir(directory.get())) {
        if (entry->d_type == DT_REG) files.add(entry->d_name);
    }
    directory.reset();
    if (files.count < kMaxDumpFiles) return;
    runReported(kTag, String8::format("%s %s", "rm -rf", files.oldest.c_str()));
}

bool KelvoAudioDumpsysLogThread::isParamInvalid(String8 cmd) {
    return holdsShellCharacter(kTag, cmd);
}

}  // namespace android
