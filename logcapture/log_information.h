#pragma once

#include <utils/String8.h>

#include <array>
#include <cstdint>

namespace android {

// A capture request as one text: event id, log types, capture directory, archive directory, archive
// name, separated by ",". Empty fields vanish, so later fields move up; fields after the fifth are
// ignored.
enum LogField { kEventId, kLogTypes, kLogPath, kTarPath, kTarName, kLogFields };
using LogInformation = std::array<String8, kLogFields>;

// Splits the text into `fields`; false, with `fields` unchanged, when there are fewer than five.
bool splitLogInformation(const String8& text, LogInformation& fields);

// The bits of the decimal number in the field of log types.
enum LogType : uint16_t {
    kAndroidLog = 1,
    kKernelLog = 2,
    kStackTrace = 4,
    kAudioDump = 8,
    kSystrace = 16,
    kPcmDump = 32,
    kQxdmLog = 64,
    kAdspMinidump = 128,
    kAdspTextLog = 256,
};

}  // namespace android
