#pragma once

#include <utils/String8.h>
#include <utils/Thread.h>

#include <cstddef>
#include <cstdint>

namespace android {

// Asks the phone's init to run the audio dump service for one dump type; dumps nothing itself. Its
// constructor bounds the dump directory: of ten or more regular files it removes the oldest.
//
// Ownership: an owner that drops its reference right after start() gets the dump requested once,
//   or twice if the thread was faster; while it keeps one, the request repeats until quit().
// Threads: the constructor prunes on its caller's thread; the request runs on the thread itself.
// Errors: each is a log line. An empty dump type ends the thread without a request.
class KelvoAudioDumpsysLogThread : public Thread {
  public:
    // The whole information string is the dump type.
    explicit KelvoAudioDumpsysLogThread(const String8& info);
    ~KelvoAudioDumpsysLogThread() override;

    status_t start(const char* name, int32_t priority, size_t stack);
    void quit();
    bool threadLoop() override;

    void checkDumpFiles();
    bool isParamInvalid(String8 cmd);

  private:
    String8 mDumpType;
};

}  // namespace android
