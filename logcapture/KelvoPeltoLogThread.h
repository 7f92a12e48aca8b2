#pragma once

#include <utils/String8.h>
#include <utils/Thread.h>

#include <cstddef>
#include <cstdint>

namespace android {

// Captures the logs named by one log-capture information string into a directory, packs that
// directory into a dated archive and removes it.
//
// Ownership: an owner that drops its reference right after start() gets one pass; while it keeps
//   one, the pass repeats until quit() or requestExit(). Every name contains the time of the
//   construction, so repeated passes write the same names.
// Threads: the constructor alone sets its fields. The steps run on the thread itself, or once on
//   the caller's own when called directly, in the order of threadLoop().
// Errors: each is a log line; the steps after a failed one still run.
class KelvoPeltoLogThread : public Thread {
  public:
    explicit KelvoPeltoLogThread(const String8& info);
    ~KelvoPeltoLogThread() override;

    status_t start(const char* name, int32_t priority, size_t stack);
    void quit();
    bool threadLoop() override;

    void doLogCaputure();
    void doCompressFile();
    // Removes the capture directory; the archive stays.
    void deleteFiles();

    void getAndroidLog();
    void getKernelLog();
    void getAudioDumpLog();
    void getSystraceLog();

    // True when the directory exists or could be made.
    bool checkPath(String8 logPath);
    // Local time as "2024-03-05_14-07-09": 0, or -1 and an error line. `size` must be 64 or more.
    int32_t getCurrentTime(char* buf, int32_t size);

  private:
    void init();
    void capture(uint8_t logType);
    void captureOutput(const char* command, const char* suffix);
    String8 archivePath() const;

    String8 mEventInfo;
    String8 mEventId;
    String8 mLogType;
    String8 mLogPath;
    String8 mTarPath;
    String8 mTarName;
    String8 mCurrentTime;
};

}  // namespace android
