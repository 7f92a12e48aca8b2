#include "logcapture/directories.h"

#include <android/log.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "phone/phone.h"

namespace android {

namespace {

constexpr mode_t kMode = 0700;

class DirectoryMaker {
  public:
    DirectoryMaker(const char* tag, PathListener listener) : mTag(tag), mListener(listener) {}

    bool make(std::string path) {
        if (exists(path.c_str())) {
            tell(PathStep::kExists, path.c_str());
            return true;
        }
        __android_log_print(ANDROID_LOG_DEBUG, mTag,
                            "checkPath : log path(%s) not exist errno=%d, create it!", path.c_str(),
                            errno);
        for (size_t slash = path.find('/', 1); slash != path.npos;
             slash = path.find('/', slash + 1)) {
            path[slash] = '\0';
            if (!makePrefix(path.c_str())) return false;
            path[slash] = '/';
        }
        return true;
    }

  private:
    bool makePrefix(const char* prefix) {
        if (exists(prefix)) {
            tell(PathStep::kPrefixExists, prefix);
            return true;
        }
        tell(PathStep::kPrefixMissing, prefix);
        if (phone::mkdir(prefix, kMode) != 0) {
            __android_log_print(ANDROID_LOG_ERROR, mTag, "checkPath : create path %s fail errno=%d",
                                prefix, errno);
            return false;
        }
        openToEverybody(prefix);
        tell(PathStep::kPrefixMade, prefix);
        return true;
    }

    // Runs chmod without the check for shell characters: a directory of this name exists already.
    void openToEverybody(const char* prefix) {
        const String8 command = String8::format("%s %s", "chmod 0777", prefix);
        if (const int result = phone::system(command.c_str())) {
            __android_log_print(ANDROID_LOG_DEBUG, mTag, "cmds: %s, %d", command.c_str(), result);
        }
    }

    static bool exists(const char* path) {
        struct stat status {};
        return phone::stat(path, &status) == 0;
    }
    void tell(PathStep step, const char* path) {
        if (mListener != nullptr) mListener(step, path);
    }

    const char* const mTag;
    const PathListener mListener;
};

}  // namespace

bool makeDirectories(const char* tag, const String8& path, PathListener listener) {
    return DirectoryMaker(tag, listener)
        .make(std::string(path.c_str(), strnlen(path.c_str(), kMaxPathBytes - 1)));
}

}  // namespace android
