#include "logcapture/KelvoWexRaiseException.h"

#include <android/log.h>
#include <wex/wex_exception.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "event/phone_integer.h"
#include "logcapture/commands.h"
#include "logcapture/directories.h"
#include "logcapture/log_information.h"
#include "phone/phone.h"

namespace android {

namespace {

constexpr char kTag[] = "KelvoWexRaiseException";
constexpr char kTombstones[] = "/data/tombstones/";
constexpr char kExceptionLog[] = "/data/persist_log/wex/exception_log/";
constexpr size_t kMinEventIdLength = 5;
constexpr size_t kMaxLogTypeLength = 9;

// Logs a verbose line for each step, in addition to the lines of makeDirectories().
void logStep(PathStep step, const char* path) {
    switch (step) {
        case PathStep::kExists:
            __android_log_print(ANDROID_LOG_VERBOSE, kTag, "checkPath : path %s exist.", path);
            break;
        case PathStep::kPrefixExists:
            __android_log_print(ANDROID_LOG_VERBOSE, kTag, "checkPath : path %s exist", path);
            break;
        case PathStep::kPrefixMissing:
            __android_log_print(ANDROID_LOG_VERBOSE, kTag,
                                "checkPath : path %s not exist, create it", path);
            break;
        case PathStep::kPrefixMade:
            __android_log_print(ANDROID_LOG_VERBOSE, kTag, "checkPath : created path %s.", path);
            break;
    }
}

uint32_t categoryOf(char character) {
    if (character == '0') return 0x10006000;
    return character == '2' ? 0x10032000 : 0;
}

int numberOf(const char* eventId) {
    try {
        return std::stoi(eventId, nullptr, 16);
    } catch (const std::invalid_argument&) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Invalid argument....");
    } catch (const std::out_of_range&) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Out of Range error...");
    }
    return 0;
}

constexpr uint64_t kPcmLogs = uint64_t{0x20} << 32;

// For each log type its bits in the reporting library's mask and the line to log, lowest type
// first.
constexpr struct {
    LogType type;
    uint64_t logs;
    int priority;
    const char* line;  // null: none
} kTranslation[] = {
    {kAndroidLog, 0x20, 0, nullptr},
    {kKernelLog, 0x1, 0, nullptr},
    {kStackTrace, 0, ANDROID_LOG_VERBOSE, "STACK_TRACE, nothing need to do now"},
    {kAudioDump, 0x208, 0, nullptr},
    {kSystrace, 0x800, ANDROID_LOG_DEBUG, "SYSTRACE log"},
    {kPcmDump, kPcmLogs, ANDROID_LOG_DEBUG, "PCM_DUMP log, for pcm dump"},
    {kQxdmLog, 0, ANDROID_LOG_VERBOSE, "QXDM_LOG, nothing need to do now"},
    {kAdspMinidump, 0x80, ANDROID_LOG_DEBUG, "ADSP_MINIDUMP_LOG log"},
    // The same bit as the PCM dump, as its line says.
    {kAdspTextLog, kPcmLogs, ANDROID_LOG_DEBUG, "PCM_DUMP log, for adsp txt log"},
};

}  // namespace

KelvoWexRaiseException::KelvoWexRaiseException(const String8& info) : mEventInfo(info) {
    init();
}

KelvoWexRaiseException::~KelvoWexRaiseException() {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "~KelvoWexRaiseException()");
}

void KelvoWexRaiseException::init() {
    if (mEventInfo.c_str() == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "KelvoWexRaiseException::init failed.");
        return;
    }
    LogInformation fields;
    if (!splitLogInformation(mEventInfo, fields)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, log info error!", "init");
        return;
    }
    mEventId = fields[kEventId];
    mLogType = fields[kLogTypes];
    mTarName = fields[kTarName];
    __android_log_print(ANDROID_LOG_VERBOSE, kTag, "init(), eventId=%s, logType=%s",
                        mEventId.c_str(), mLogType.c_str());
    if ((phoneAtoi(mLogType.c_str()) & kStackTrace) != 0) getTombstoneFiles();
}

void KelvoWexRaiseException::getTombstoneFiles() {
    if (!checkPath(String8::format("%s", kExceptionLog))) return;
    runLogged(String8::format("cp %s* %s", kTombstones, kExceptionLog));
    runLogged(String8::format("chmod 0777 %s*", kExceptionLog));
}

void KelvoWexRaiseException::runLogged(const String8& command) {
    __android_log_print(ANDROID_LOG_VERBOSE, kTag, "getTombstoneFiles cmd:%s", command.c_str());
    runReported(kTag, command);
}

uint32_t KelvoWexRaiseException::getWexExceptionId(String8 eventId) {
    if (eventId.length() < kMinEventIdLength) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s: eventid is wrong", "getWexExceptionId");
        return 0;
    }
    // On purpose: the category comes from one character, the low bits from the whole number.
    const uint32_t category = categoryOf(eventId.c_str()[1]);
    return category | (static_cast<uint32_t>(numberOf(eventId.c_str())) & 0xFFF);
}

uint64_t KelvoWexRaiseException::getWexAtomicLogs(String8 logType) {
    if (logType.isEmpty() || logType.length() > kMaxLogTypeLength) return 0;
    const int types = phoneAtoi(logType.c_str());
    uint64_t logs = 0;
    for (const auto& row : kTranslation) {
        if ((types & row.type) == 0) continue;
        if (row.line != nullptr)
            __android_log_print(row.priority, kTag, "%s: %s", "getWexAtomicLogs", row.line);
        logs |= row.logs;
    }
    return logs;
}

int32_t KelvoWexRaiseException::WexRaiseException() {
    wex_exception_info report = {};
    struct timeval now {};
    phone::gettimeofday(&now, nullptr);
    // The phone counts seconds in 32 bits.
    report.exceptionTime = static_cast<int32_t>(now.tv_sec);
    report.exceptionId = getWexExceptionId(mEventId);
    report.atomicLogs = getWexAtomicLogs(mLogType);
    memcpy(report.logName, mTarName.c_str(),
           std::min(mTarName.length(), sizeof report.logName - 1));
    if (wex_raise_exception(&report) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s: error, wex_raise_exception failed",
                            "WexRaiseException");
        return -1;
    }
    return 0;
}

bool KelvoWexRaiseException::checkPath(String8 logPath) {
    __android_log_print(ANDROID_LOG_DEBUG, kTag,
                        "checkPath :sizeof(path)=%u, logPath.size()=%zu, path=%.*s",
                        static_cast<unsigned>(kMaxPathBytes), logPath.length(),
                        static_cast<int>(kMaxPathBytes - 1), logPath.c_str());
    return makeDirectories(kTag, logPath, logStep);
}

bool KelvoWexRaiseException::isParamInvalid(String8 cmd) {
    return holdsShellCharacter(kTag, cmd);
}

}  // namespace android
