#pragma once

#include <utils/RefBase.h>
#include <utils/String8.h>

#include <cstdint>

namespace android {

// Turns one log-capture information string into one exception report for the reporting library.
//
// Threads: commands and report run on the caller's thread; no lock of its own.
// Order: the constructor reads the information and, when stack traces are asked for, copies the
//   tombstones to where the library looks; WexRaiseException() raises the report.
// Errors: information that cannot be read is one log line, and the report is raised without it.
class KelvoWexRaiseException : public virtual RefBase {
  public:
    explicit KelvoWexRaiseException(const String8& info);
    ~KelvoWexRaiseException() override;

    // 0, or -1 and a log line when the library refuses the report.
    int32_t WexRaiseException();

    // The library's id for an event id: 0 for one that is too short, the category alone for one
    // that is no number.
    uint32_t getWexExceptionId(String8 eventId);
    // The library's mask of the logs to attach for a field of log types.
    uint64_t getWexAtomicLogs(String8 logType);

    void getTombstoneFiles();
    // True when the directory exists or could be made.
    bool checkPath(String8 logPath);
    bool isParamInvalid(String8 cmd);

  private:
    void init();
    void runLogged(const String8& command);

    String8 mEventInfo;
    String8 mEventId;
    String8 mLogType;
    String8 mTarName;
};

}  // namespace android
