#include "logcapture/commands.h"

#include <android/log.h>

#include <cstring>

#include "phone/phone.h"

namespace android {

bool holdsShellCharacter(const char* tag, const String8& command) {
    if (strpbrk(command.c_str(), "|&;`$") == nullptr) return false;
    __android_log_print(ANDROID_LOG_ERROR, tag, "%s, invalid param!", "isParamInvalid");
    return true;
}

int runGuarded(const char* tag, const String8& command) {
    return holdsShellCharacter(tag, command) ? 0 : phone::system(command.c_str());
}

void runReported(const char* tag, const String8& command) {
    if (const int result = runGuarded(tag, command)) {
        __android_log_print(ANDROID_LOG_DEBUG, tag, "cmds failed: %s, err=%d", command.c_str(),
                            result);
    }
}

}  // namespace android
